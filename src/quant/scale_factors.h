// Scale-factor estimation: 3/4 powers of the spectrum and the starting offset of each band.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// For the channel's coded bands: pow34[k] = (8 |spectrum[k]|)^(3/4), band_sf_offset = 0 ... 18 from the band's largest
// 3/4 power (a louder band is quantized more coarsely), and has_signal in `block`. band_peaks: that largest power of
// each band, in coding order.
void estimate_scale_factors(CodingBlock &block, Pow34 pow34, ConstSpectrum spectrum, BandArray band_sf_offset,
                            std::span<i32, max_bands> band_peaks, u32 channel);

}  // namespace tavik
