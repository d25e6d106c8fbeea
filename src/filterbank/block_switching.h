// Attack detection and the window decision of one channel.
#pragma once

#include "interface/encoder_context.h"

namespace tavik {

inline constexpr u32 subblocks = 8;  // per frame, of 128 samples each

// peaks[b] = the largest magnitude of the b-th 128 samples of block.
void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks);

// Looks for an attack in the newer half of the block to be coded (peaks 0 to 7; 8 to 15 belong to the lookahead) and
// moves the channel's window sequence on. `short_run_active`: between LONG_START and LONG_STOP. `attack_index`:
// sub-block 0 to 7 of the attack, kept when there is none. `previous`: peaks of the call before.
WindowSequence decide_window(u32 sampling_rate_index, std::span<const i32, 2 * subblocks> peaks, u32 &short_run_active,
                             u32 &attack_index, TavikAttackDetectorState &previous);

}  // namespace tavik
