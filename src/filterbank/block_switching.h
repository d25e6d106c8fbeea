// Attack detection and the window decision of one channel.
#pragma once

#include <array>
#include <span>

#include "common/encoder_context.h"
#include "common/lanes.h"

namespace tavik {

inline constexpr u32 subblocks = 8;  // per frame, of 128 samples each

// peaks[b] = the largest magnitude of the b-th 128 samples of block. That of -2^31 counts as negative, so never.
template <u32 N>
inline void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks) {
    constexpr u32 length = frame_length / subblocks;
    const i32 *from = block.data();
    for (i32 &peak : peaks) {
        I32<N> most{};
        for (const i32 *end = from + length; from != end; from += 4 * N) {
            std::array<I32<N>, 4> x{};
            load_row(from, x);
            most = max(most, max(max(abs(x[0]), abs(x[1])), max(abs(x[2]), abs(x[3]))));
        }
        peak = largest_lane(most);
    }
}

// The same with the lanes of this machine.
void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks);

// Looks for an attack in the newer half of the block to be coded (peaks 0 to 7; 8 to 15 belong to the lookahead) and
// moves the channel's window sequence on. `short_run_active`: between LONG_START and LONG_STOP. `attack_index`:
// sub-block 0 to 7 of the attack, kept when there is none. `previous`: peaks of the call before.
WindowSequence decide_window(u32 sampling_rate_index, std::span<const i32, 2 * subblocks> peaks, u32 &short_run_active,
                             u32 &attack_index, TavikAttackDetectorState &previous);

}  // namespace tavik
