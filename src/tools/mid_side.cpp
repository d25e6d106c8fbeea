#include "tools/mid_side.h"

namespace tavik {

void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums) {
    band_sums<native_lanes>(left, right, offsets, sums);
}

void to_mid_side(std::span<i32> left, std::span<i32> right) { to_mid_side<native_lanes>(left, right); }

}  // namespace tavik
