// The coded bands of a channel as the rate loop needs them at every trial, gathered once per search.
#pragma once

#include "quant/coded_bands.h"

namespace tavik {

struct RateBand {
    u32 peak;  // largest 3/4 power
    u8 begin_4;
    u8 width_4 : 7;       // up to 64
    u8 starts_group : 1;  // the first of its window group
    u8 entry;             // in band arrays
    u8 sf_offset;         // 0 ... 18

    u32 begin() const { return 4 * u32{begin_4}; }  // first coefficient
    u32 width() const { return 4 * u32{width_4}; }
};

// Up to 51 bands of a long block, or 15 in each of up to 3 groups.
struct RateBands {
    std::array<RateBand, max_bands> bands;
    u32 count;
    u32 all_zero_common_sf;  // from here on every band is quantized to zero, whatever its spectrum

    const RateBand *begin() const { return bands.data(); }
    const RateBand *end() const { return bands.data() + count; }
};

// band_peaks: the largest 3/4 power of each band, in coding order; if nullptr, they are found in pow34.
RateBands gather_rate_bands(const CodingBlock &block, ConstPow34 pow34, const i32 *band_peaks,
                            ConstBandArray band_sf_offset, u32 channel);

}  // namespace tavik
