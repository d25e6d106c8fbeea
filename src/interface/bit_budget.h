// The bits that each channel of a frame may spend, and the reservoir of a variable-rate stream.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// Sets every channel's target to the mean of the stream.
void reset_bit_targets(CodingBlock &block);

// Sets the rate loop's tolerances, a tenth of the present targets, and returns the bits available beyond the targets.
i32 set_bit_tolerances(CodingBlock &block);

// Variable rate: raises the channel's target by shares of the mean, taken from the available bits while there are any;
// by more for a change of window and for temporal noise shaping. Channels draw in order.
void draw_from_reservoir(EncoderState &state, i32 &available, WindowSequence previous_window_sequence, u32 channel);

// Accounts for a frame of `frame_bytes` bytes and sets the bits available to the next.
void update_reservoir(CodingBlock &block, u32 frame_bytes);

}  // namespace tavik
