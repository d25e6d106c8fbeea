// The per-frame pipeline: which stages run, in what order, on what data.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// Measures the lookahead of every channel and, once start-up is over, decides the window sequences of the block to be
// coded. Runs on every call that moves the delay line. Returns the sequences before that decision.
PerChannel<WindowSequence> decide_windows(EncoderState &state);

// Codes the block in the time history into `output` and returns the frame's bytes. Uses the older half of channel 0's
// time history as scratch; the next call overwrites it anyway.
u32 encode_frame(EncoderState &state, const PerChannel<WindowSequence> &previous_sequences, u8 *output);

}  // namespace tavik
