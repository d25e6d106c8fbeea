// Quantizes a channel at one trial gain, chooses the codebooks and counts the bits.
#pragma once

#include "quant/rate_bands.h"
#include "tables/sections.h"

namespace tavik {

inline constexpr u32 max_quantized = 8191;                         // the standard's limit of escape coding
inline constexpr u32 overflow_bits = 3 * buffer_bits_per_channel;  // "bits" of a channel that exceeds it

// The arrays of one channel around the rate loop.
struct ChannelData {
    ConstSpectrum spectrum;  // for signs only
    ConstPow34 pow34;
    ConstBandArray band_sf_offset;
    Codebooks codebooks;                     // out, per coded band
    std::span<i32, frame_length> quantized;  // out: signed in bands of codebooks 1, 2, 5, 6; magnitudes elsewhere
    const i32 *band_peaks = nullptr;         // largest 3/4 power of each band, in coding order; or nullptr
};

struct Trial {
    u32 common_sf;
    SectionLengthField section_length;
    u32 bit_limit;  // the count may stop once it has reached this
};

inline constexpr u32 no_bit_limit = 0xFFFFFFFF;

// Bits of section, scale-factor and spectral data with the trial's common_sf; exactly what the channel stream writer
// spends on them. Sets codebooks and values of the coded bands, except that bands of codebook 0 keep their old values.
// Stops with overflow_bits where a quantized magnitude exceeds 8191, and with the bits so far where they have reached
// bit_limit; codebooks and values are then incomplete.
u32 count_bits(const RateBands &bands, const ChannelData &data, Trial trial);

}  // namespace tavik
