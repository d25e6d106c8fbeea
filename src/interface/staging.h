// Input staging: 16-bit PCM becomes the newest input frame of each channel, and the delay line moves on.
#pragma once

#include <algorithm>

#include "common/encoder_context.h"
#include "common/lanes.h"

namespace tavik {

// Moves each channel's frames on by one: the lookahead becomes the newer half of the time history, and the newer half
// becomes the older. The new lookahead is the first `count` <= 1024 samples of each channel in pcm, then silence.
void stage_input(EncoderState &state, const i16 *pcm, u32 count);

template <u32 N>
inline void copy_frame(const i32 *from, i32 *to) {
    for (const i32 *end = from + frame_length; from != end; from += 4 * N, to += 4 * N) {
        copy_four<N>(from, to);
    }
}

// The first `count` pairs of a stereo frame, a multiple of 8.
template <u32 N>
inline void read_stereo(const i16 *pcm, u32 count, i32 *left, i32 *right) {
    constexpr u32 lanes = std::min(N, 4u);
    for (const i32 *end = left + count; left != end; left += 2 * lanes, right += 2 * lanes, pcm += 4 * lanes) {
        const Pairs<lanes> low = load_pairs<lanes>(pcm);
        const Pairs<lanes> high = load_pairs<lanes>(pcm + 2 * lanes);
        store_two(left, low.first, high.first);
        store_two(right, low.second, high.second);
    }
}

// The first `count` samples of a mono frame, a multiple of 8.
template <u32 N>
inline void read_mono(const i16 *pcm, u32 count, i32 *samples) {
    constexpr u32 step = std::min(N, 4u);  // pairs, of eight samples at most
    for (const i32 *end = samples + count; samples != end; samples += 2 * step, pcm += 2 * step) {
        store_pairs(samples, load_pairs<step>(pcm));
    }
}

}  // namespace tavik
