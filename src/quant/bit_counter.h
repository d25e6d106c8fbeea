// Quantizes a channel at one trial gain, chooses the codebooks and counts the bits.
#pragma once

#include "interface/encoder_context.h"

namespace tavik {

inline constexpr u32 largest_quantized = 8191;                     // the standard's limit of escape coding
inline constexpr u32 overflow_bits = 3 * buffer_bits_per_channel;  // "bits" of a channel that exceeds it

// The arrays of one channel around the rate loop.
struct ChannelData {
    ConstSpectrum spectrum;  // for signs only
    ConstPow34 pow34;
    ConstBandArray band_sf_offset;
    BandArray codebooks;                     // out: 0 ... 11 per coded band
    std::span<i32, frame_length> quantized;  // out: signed in bands of codebooks 1, 2, 5, 6; magnitudes elsewhere
};

// Bits of section, scale-factor and spectral data with the trial common_sf; exactly what the channel stream writer
// spends on them. overflow_bits as soon as a quantized magnitude exceeds 8191; codebooks and values are then
// incomplete.
u32 count_bits(const CodingBlock &block, u32 common_sf, const ChannelData &data, u32 channel);

}  // namespace tavik
