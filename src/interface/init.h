// Checks of the configuration, and the values that follow from it.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

inline constexpr u32 unknown_sample_rate = 15;

// sampling_frequency_index of the nine supported rates, otherwise unknown_sample_rate.
u32 sample_rate_index(u32 sample_rate);

// Clears the context and prepares it for the first frame of a stream. Returns TAVIK_OK, or the error code of the first
// field out of range; the context is then clear except for the configuration.
i32 initialise(EncoderState &state, const EncoderConfig &config);

}  // namespace tavik
