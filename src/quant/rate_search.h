// The search of the rate loop, independent of how bits are counted: one value, common_sf, is moved until the bits fit.
// A larger common_sf quantizes more coarsely.
#pragma once

#include <algorithm>

#include "common/fixed_point.h"

namespace tavik {

struct RateTarget {
    i32 bits;       // not to be exceeded
    i32 tolerance;  // a count closer to `bits` than this ends the bisection; 0 or less never does
};

// Limit of the calls of count_bits in one search from common_sf 0 ... 127 with an all_zero_common_sf of up to 112,
// whatever the counts. The worst case is a count at 0 that is above the target, but within the tolerance: the bisection
// ends at once, and common_sf then rises by 1 from 1 to 112. A bisection only shortens this: its steps upward, of 4 or
// more, skip values, and before a step downward, of 2 or more, a count was below the target, where the rise would end.
inline constexpr u32 max_counts_per_search = 113;

// From `all_zero_common_sf` on every value is quantized to zero: a larger common_sf changes nothing. Each trial calls
// count_bits(common_sf); the result is the common_sf of the last call.
template <typename CountBits>
class RateSearch {
 public:
    RateSearch(u32 start, u32 all_zero_common_sf, RateTarget target, CountBits count_bits)
        : common_sf_(start), all_zero_common_sf_(all_zero_common_sf), target_(target), count_bits_(count_bits) {
        count();
    }

    u32 run() {
        bisect();
        while (excess_ > 0 && common_sf_ < all_zero_common_sf_) {
            ++common_sf_;
            count();
        }
        return common_sf_;
    }

 private:
    void count() {
        bits_ = static_cast<i32>(count_bits_(common_sf_));
        excess_ = wrap_sub(bits_, target_.bits);
    }

    // 4, but larger when the first count is far off in proportion to itself.
    u32 first_step() const {
        const i64 distance = magnitude(excess_);
        if (distance <= 8 * i64{bits_}) return 4;
        return distance <= 16 * i64{bits_} ? 8 : 16;
    }

    // A count above the target moves common_sf up, any other down; each reversal (the first direction counts as up)
    // halves the step. Ends within the tolerance, when the step would be 0, or where common_sf can move no further.
    void bisect() {
        u32 step = first_step();
        bool upward = true;
        while (wrap_abs(excess_) >= target_.tolerance) {
            const bool above_target = excess_ > 0;
            if (above_target != upward) {
                step /= 2;
                upward = above_target;
                if (step == 0) return;
            }
            if (common_sf_ >= all_zero_common_sf_ && upward) return;
            if (common_sf_ == 0 && !upward) return;
            common_sf_ = upward ? common_sf_ + step : common_sf_ - std::min(common_sf_, step);
            count();
        }
    }

    u32 common_sf_;
    u32 all_zero_common_sf_;
    RateTarget target_;
    CountBits count_bits_;
    i32 bits_ = 0;    // of the latest count
    i32 excess_ = 0;  // bits - target
};

}  // namespace tavik
