// Kernels of mid/side stereo, over whole bands of long blocks: multiples of 4 lines.
#pragma once

#include "common/encoder_context.h"
#include "interface/kernels.h"

namespace tavik {

// Magnitude sums of a band: |l| + |r| and |l - r| of the halved lines, / 32; they wrap at 32 bits before the division.
struct BandSums {
    i32 both;
    i32 side;
    bool operator==(const BandSums &) const = default;
};

namespace portable {

// The sums of each band; band b has the lines offsets[b] ... offsets[b + 1] - 1.
void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums);

// (l + r) / 2 and (l - r) / 2, rounded down, in place of l and r.
void transform(std::span<i32> left, std::span<i32> right);

}  // namespace portable

#if defined(__aarch64__)
namespace neon {
void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums);
void transform(std::span<i32> left, std::span<i32> right);
}  // namespace neon

#if defined(TAVIK_CHECK_KERNELS)
namespace checked {

inline void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums) {
    std::array<BandSums, max_bands> expected{};
    portable::band_sums(left, right, offsets, std::span(expected).first(sums.size()));
    neon::band_sums(left, right, offsets, sums);
    for (std::size_t b = 0; b < sums.size(); ++b) require_equal(sums[b] == expected[b]);
}

inline void transform(std::span<i32> left, std::span<i32> right) {
    std::array<i32, frame_length> mid;
    std::array<i32, frame_length> side;
    copy_elements(left.data(), left.size(), mid.data());
    copy_elements(right.data(), right.size(), side.data());
    portable::transform(std::span(mid).first(left.size()), std::span(side).first(left.size()));
    neon::transform(left, right);
    for (std::size_t k = 0; k < left.size(); ++k) require_equal(left[k] == mid[k] && right[k] == side[k]);
}

}  // namespace checked
#endif
#endif

}  // namespace tavik
