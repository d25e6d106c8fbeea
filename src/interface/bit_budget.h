// The bits that each channel of a frame may spend, and the reservoir of a variable-rate stream.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// Every channel starts from the mean of the stream.
void reset_bit_targets(CodingBlock &block);

// Fixes the rate loop's tolerances, a tenth of the targets as they stand, and returns the pool: the available bits that
// the targets leave over.
i32 set_bit_tolerances(CodingBlock &block);

// Variable rate: raises the channel's target by shares of the mean, as long as the pool lasts; more for a change of
// window and for temporal noise shaping. Channels draw on the pool in order.
void lend_reservoir_bits(EncoderState &state, i32 &pool, WindowSequence previous_window_sequence, u32 channel);

// Accounts for a frame of `frame_bytes` bytes and sets the bits available to the next.
void update_reservoir(CodingBlock &block, u32 frame_bytes);

}  // namespace tavik
