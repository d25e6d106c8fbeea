#include <arm_neon.h>

#include <algorithm>

#include "tools/linear_prediction.h"

namespace tavik::neon {
namespace {

using tables::tns_max_order;

constexpr std::size_t vector = 4;  // lines

// A range of lines split for vectors of lines that read 12 lines below themselves: the lowest lines go behind zeros in
// a buffer of their own, so many that the others come to whole blocks and find 12 lines below.
template <std::size_t Block>
class PaddedHead {
 public:
    explicit PaddedHead(std::span<const i32> x)
        : lines_(x.size() < tns_max_order ? x.size() : tns_max_order + (x.size() - tns_max_order) % Block) {
        for (std::size_t i = 0; i < lines_; ++i) buffer_[size - lines_ + i] = x[i];
    }
    std::size_t lines() const { return lines_; }
    std::size_t blocks() const { return (lines_ + Block - 1) / Block; }
    i32 *end() { return buffer_.data() + size; }
    const i32 *end() const { return buffer_.data() + size; }
    const i32 *line_0() const { return buffer_.data() + size - lines_; }

 private:
    // Up to 12 + Block - 1 lines in whole blocks, and 12 below.
    static constexpr std::size_t size = tns_max_order + (tns_max_order + 2 * (Block - 1)) / Block * Block;
    std::size_t lines_;
    std::array<i32, size> buffer_{};
};

// How products are summed: in 32 bits, where the caller knows that they suffice, or in 64.
struct NarrowSum {
    static constexpr std::size_t first_lag = 1;
    int32x4_t value = vdupq_n_s32(0);
    void add(int32x4_t a, int32x4_t b) { value = vmlaq_s32(value, a, b); }
    i64 total() const { return vaddlvq_s32(value); }
};
struct WideSum {
    static constexpr std::size_t first_lag = 0;
    int64x2_t value = vdupq_n_s64(0);
    void add(int32x4_t a, int32x4_t b) {
        value = vmlal_high_s32(vmlal_s32(value, vget_low_s32(a), vget_low_s32(b)), a, b);
    }
    i64 total() const { return vaddvq_s64(value); }
};

// Of the lags from the sum's first on.
template <typename Sum>
using LagSums = std::array<Sum, tns_lags - Sum::first_lag>;

template <std::size_t Lag, typename Sum>
void add_lag(LagSums<Sum> &sums, int32x4_t low, int32x4_t high, int32x4_t low_below, int32x4_t high_below) {
    sums[Lag - Sum::first_lag].add(low, low_below);
    sums[Lag - Sum::first_lag].add(high, high_below);
}

// Lags R, R + 4 and R + 8 of lines p[0 ... 7].
template <std::size_t R, typename Sum>
void add_lags(LagSums<Sum> &sums, int32x4_t low, int32x4_t high, const i32 *p) {
    const int32x4x4_t x = vld1q_s32_x4(p - 8 - R);
    add_lag<R, Sum>(sums, low, high, x.val[2], x.val[3]);
    add_lag<R + 4, Sum>(sums, low, high, x.val[1], x.val[2]);
    add_lag<R + 8, Sum>(sums, low, high, x.val[0], x.val[1]);
}

constexpr std::size_t lag_block = 2 * vector;

// A range as PaddedHead splits it: the head, then the rest.
struct Segment {
    const i32 *lines;
    std::size_t blocks;
};
using Segments = std::array<Segment, 2>;

template <typename Sum>
void sum_lags(const Segments &segments, std::span<i64, tns_lags> r) {
    LagSums<Sum> totals;
    for (const Segment &segment : segments) {
        LagSums<Sum> sums = totals;  // in registers
        const i32 *p = segment.lines;
        for (std::size_t blocks = segment.blocks; blocks != 0; --blocks) {
            const int32x4x4_t x = vld1q_s32_x4(p - 8);
            const int32x4_t low = x.val[2];
            const int32x4_t high = x.val[3];
            if constexpr (Sum::first_lag == 0) add_lag<0, Sum>(sums, low, high, low, high);
            add_lag<4, Sum>(sums, low, high, x.val[1], low);
            add_lag<8, Sum>(sums, low, high, x.val[0], x.val[1]);
            add_lag<12, Sum>(sums, low, high, vld1q_s32(p - 12), x.val[0]);
            add_lags<1, Sum>(sums, low, high, p);
            add_lags<2, Sum>(sums, low, high, p);
            add_lags<3, Sum>(sums, low, high, p);
            p += lag_block;
        }
        totals = sums;
    }
    for (std::size_t lag = Sum::first_lag; lag < tns_lags; ++lag) r[lag] = totals[lag - Sum::first_lag].total();
}

// Sum of the squares, up to 2^62 - 1.
i64 energy_of(const Segments &segments) {
    int64x2_t doubled = vdupq_n_s64(0);
    for (const Segment &segment : segments) {
        const i32 *p = segment.lines;
        for (std::size_t blocks = segment.blocks; blocks != 0; --blocks) {
            const int32x4x2_t x = vld1q_s32_x2(p);
            for (const int32x4_t v : x.val) {
                doubled = vqdmlal_high_s32(vqdmlal_s32(doubled, vget_low_s32(v), vget_low_s32(v)), v, v);
            }
            p += lag_block;
        }
    }
    return vqaddd_s64(vgetq_lane_s64(doubled, 0), vgetq_lane_s64(doubled, 1)) >> 1;
}

}  // namespace

// Any sum of products of lines with lines a lag below is at most the energy, r[0], by the Cauchy-Schwarz inequality,
// and so is what any vector lane adds up. Most signals are so weak up there that 32 bits do.
void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) {
    const PaddedHead<lag_block> head(x);
    const Segments segments = {{{head.end() - head.blocks() * lag_block, head.blocks()},
                                {x.data() + head.lines(), (x.size() - head.lines()) / lag_block}}};
    r[0] = energy_of(segments);
    if (r[0] >> 31 == 0) {
        sum_lags<NarrowSum>(segments, r);
    } else {
        sum_lags<WideSum>(segments, r);
    }
}

bool prediction_gain_is_low(std::span<const i64, tns_lags> r) {
    const int64x2x4_t low = vld1q_s64_x4(r.data());
    const int64x2x2_t high = vld1q_s64_x2(r.data() + 8);
    const int64x2_t last = vld1q_dup_s64(r.data() + 12);
    int64x2_t bits = vabsq_s64(last);
    for (const int64x2_t v : low.val) bits = vorrq_s64(bits, vabsq_s64(v));
    for (const int64x2_t v : high.val) bits = vorrq_s64(bits, vabsq_s64(v));
    const int64x2_t shift =
        vdupq_n_s64(gain_bound::normal_shift(static_cast<u64>(vgetq_lane_s64(bits, 0) | vgetq_lane_s64(bits, 1))));
    const auto normal = [shift](int64x2_t a, int64x2_t b) {
        return vcombine_s32(vmovn_s64(vshlq_s64(a, shift)), vmovn_s64(vshlq_s64(b, shift)));
    };
    int32x4_t v[3] = {normal(low.val[0], low.val[1]), normal(low.val[2], low.val[3]), normal(high.val[0], high.val[1])};
    int32x4_t u[3] = {vextq_s32(v[0], v[1], 1), vextq_s32(v[1], v[2], 1), vextq_s32(v[2], normal(last, last), 1)};

    i32 error = vgetq_lane_s32(v[0], 0);
    const i32 limit = gain_bound::error_limit(error);
    if (error >> (gain_bound::value_bits - 1) != 1) return false;
    for (u32 m = 1; m < tns_lags; ++m) {
        const i32 next = vgetq_lane_s32(u[0], 0);
        if (wrap_abs(next) >= error) return false;
        const int32x4_t k = vdupq_n_s32(gain_bound::reflection_q31(next, error));
        for (u32 i = 0; i < 3; ++i) {
            const int32x4_t from_u = u[i];
            u[i] = vaddq_s32(from_u, vqrdmulhq_s32(v[i], k));
            v[i] = vaddq_s32(v[i], vqrdmulhq_s32(from_u, k));
        }
        error = vgetq_lane_s32(v[0], 0);
        if (error <= limit) return false;
        u[0] = vextq_s32(u[0], u[1], 1);
        u[1] = vextq_s32(u[1], u[2], 1);
        u[2] = vextq_s32(u[2], u[2], 1);
    }
    return true;
}

namespace {

using WideLines = int64x2x2_t;

template <int Lane>
void add_tap(WideLines &sum, int32x4_t x, int32x4_t c) {
    sum.val[0] = vmlal_laneq_s32(sum.val[0], vget_low_s32(x), c, Lane);
    sum.val[1] = vmlal_high_laneq_s32(sum.val[1], x, c, Lane);
}

// Taps R, R + 4 and R + 8 of four lines, R = 1 ... 4.
template <int R>
void add_taps(WideLines &sum, const i32 *p, const int32x4x3_t &c_q24) {
    const int32x4x3_t x = vld1q_s32_x3(p - 8 - R);
    add_tap<R - 1>(sum, x.val[2], c_q24.val[0]);
    add_tap<R - 1>(sum, x.val[1], c_q24.val[1]);
    add_tap<R - 1>(sum, x.val[0], c_q24.val[2]);
}

// Filters lines downwards from `end`.
void filter_vectors(i32 *end, std::size_t vectors, std::span<const i32, tns_max_order> coefficients_q24) {
    const int32x4x3_t c_q24 = vld1q_s32_x3(coefficients_q24.data());
    for (i32 *p = end; vectors != 0; --vectors) {
        p -= vector;
        WideLines sum = {vdupq_n_s64(0), vdupq_n_s64(0)};
        add_taps<1>(sum, p, c_q24);
        add_taps<2>(sum, p, c_q24);
        add_taps<3>(sum, p, c_q24);
        add_taps<4>(sum, p, c_q24);
        vst1q_s32(p, vaddq_s32(vld1q_s32(p), vshrn_high_n_s64(vshrn_n_s64(sum.val[0], 24), sum.val[1], 24)));
    }
}

}  // namespace

void shaping_filter(std::span<i32> x, std::span<const i32, tns_max_order> c_q24) {
    PaddedHead<vector> head(x);
    filter_vectors(x.data() + x.size(), (x.size() - head.lines()) / vector, c_q24);
    filter_vectors(head.end(), head.blocks(), c_q24);
    for (std::size_t i = 0; i < head.lines(); ++i) x[i] = head.line_0()[i];
}

}  // namespace tavik::neon
