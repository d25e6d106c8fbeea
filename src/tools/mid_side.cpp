#include "tools/mid_side.h"

namespace tavik::portable {
namespace {

// Without a branch that a compiler might make: signs of lines cannot be predicted.
constexpr i32 abs_of(i32 x) { return wrap_sub(x ^ (x >> 31), x >> 31); }

}  // namespace

void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums) {
    for (BandSums &sum : sums) {
        i32 both = 0;
        i32 side = 0;
        for (u32 k = offsets[0]; k < offsets[1]; ++k) {
            const i32 l = left[k] >> 1;
            const i32 r = right[k] >> 1;
            both = wrap_add(both, wrap_add(abs_of(l), abs_of(r)));
            side = wrap_add(side, abs_of(wrap_sub(l, r)));
        }
        sum = {both >> 5, side >> 5};
        ++offsets;
    }
}

void transform(std::span<i32> left, std::span<i32> right) {
    for (std::size_t k = 0; k < left.size(); ++k) {
        const i32 mid = wrap_add(left[k], right[k]) >> 1;
        const i32 side = wrap_sub(left[k], right[k]) >> 1;
        left[k] = mid;
        right[k] = side;
    }
}

}  // namespace tavik::portable
