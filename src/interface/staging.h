// Where samples enter a stream: 16-bit PCM to the newest input frame of each channel, and the delay line behind it.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "common/encoder_context.h"
#include "interface/kernels.h"

namespace tavik {

// Moves each channel's frames on by one: the lookahead becomes the newer half of the time history, the newer half the
// older. The new lookahead is the first `count` <= 1024 samples of each channel in pcm, then silence.
void stage_input(EncoderState &state, const i16 *pcm, u32 count);

using Frame = std::span<i32, frame_length>;
using ConstFrame = std::span<const i32, frame_length>;

namespace portable {

void copy_frame(ConstFrame from, Frame to);

// The first `count` samples of a frame, a multiple of 8, from as many values of mono, or pairs of stereo.
void read_mono(const i16 *pcm, u32 count, Frame samples);
void read_stereo(const i16 *pcm, u32 count, Frame left, Frame right);

}  // namespace portable

#if defined(__aarch64__)
namespace neon {

void copy_frame(ConstFrame from, Frame to);
void read_mono(const i16 *pcm, u32 count, Frame samples);
void read_stereo(const i16 *pcm, u32 count, Frame left, Frame right);

}  // namespace neon

#if defined(TAVIK_CHECK_KERNELS)
namespace checked {

inline void copy_frame(ConstFrame from, Frame to) {
    neon::copy_frame(from, to);
    require_equal(std::ranges::equal(from, to));
}

inline void read_mono(const i16 *pcm, u32 count, Frame samples) {
    std::array<i32, frame_length> expected;
    portable::read_mono(pcm, count, expected);
    neon::read_mono(pcm, count, samples);
    require_equal(std::equal(expected.begin(), expected.begin() + count, samples.begin()));
}

inline void read_stereo(const i16 *pcm, u32 count, Frame left, Frame right) {
    std::array<i32, frame_length> expected_left, expected_right;
    portable::read_stereo(pcm, count, expected_left, expected_right);
    neon::read_stereo(pcm, count, left, right);
    require_equal(std::equal(expected_left.begin(), expected_left.begin() + count, left.begin()));
    require_equal(std::equal(expected_right.begin(), expected_right.begin() + count, right.begin()));
}

}  // namespace checked
#endif
#endif

}  // namespace tavik
