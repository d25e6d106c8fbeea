// One call of TAVIK_Encode around the coding of a frame: input staging, the end-of-stream protocol and start-up.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// Return values of the entry points.
inline constexpr i32 result_full_frame = 0;  // a full input frame was taken and a frame written
inline constexpr i32 result_other = 1;       // see the status
inline constexpr i32 result_error = -1;

// Takes in `sample_count` samples per channel (0 = end of input; 1024 is written back for more) and delivers at most
// one frame of `output_bytes` bytes. Sets the status; returns result_full_frame or result_other.
i32 encode(EncoderState &state, const i16 *pcm, u32 &sample_count, u8 *output, u32 &output_bytes);

}  // namespace tavik
