// Scale-factor estimation: 3/4 powers of the spectrum and the starting offset of each band.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// For each coded band of the channel: pow34[k] = (8 |spectrum[k]|)^(3/4); the largest of these in band_peaks, in coding
// order; and from that band_sf_offset, 0 ... 18: a louder band is quantized more coarsely. Sets has_signal in `block`.
void estimate_scale_factors(CodingBlock &block, Pow34 pow34, ConstSpectrum spectrum, BandArray band_sf_offset,
                            std::span<i32, max_bands> band_peaks, u32 channel);

}  // namespace tavik
