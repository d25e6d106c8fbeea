// Attack detection and the window decision of one channel.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "common/encoder_context.h"
#include "interface/kernels.h"

namespace tavik {

inline constexpr u32 subblocks = 8;  // per frame, of 128 samples each

namespace portable {

// peaks[b] = the largest magnitude of the b-th 128 samples of block.
void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks);

}  // namespace portable

#if defined(__aarch64__)
namespace neon {

void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks);

}  // namespace neon

#if defined(TAVIK_CHECK_KERNELS)
namespace checked {

inline void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks) {
    std::array<i32, subblocks> expected;
    portable::measure_peaks(block, expected);
    neon::measure_peaks(block, peaks);
    require_equal(std::ranges::equal(peaks, expected));
}

}  // namespace checked
#endif
#endif

// Looks for an attack in the newer half of the block to be coded (peaks 0 to 7; 8 to 15 belong to the lookahead) and
// moves the channel's window sequence on. `short_run_active`: between LONG_START and LONG_STOP. `attack_index`:
// sub-block 0 to 7 of the attack, kept when there is none. `previous`: peaks of the call before.
WindowSequence decide_window(u32 sampling_rate_index, std::span<const i32, 2 * subblocks> peaks, u32 &short_run_active,
                             u32 &attack_index, TavikAttackDetectorState &previous);

}  // namespace tavik
