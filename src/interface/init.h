// Configuration checks and the values of a stream that follow from its configuration.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

inline constexpr u32 unknown_sample_rate = 15;

// sampling_frequency_index of the nine supported rates, otherwise unknown_sample_rate.
u32 sample_rate_index(u32 sample_rate);

// Clears the context and makes it ready for the first frame of a stream. Returns TAVIK_OK, or the code of the first bad
// field; the context is then cleared but for the configuration.
i32 initialise(EncoderState &state, const EncoderConfig &config);

}  // namespace tavik
