// Windows of the four window sequences, and the transform of each.
#include "filterbank/filter_bank.h"

#include <cstddef>
#include <cstring>

#include "filterbank/mdct.h"

namespace tavik {
namespace {

using Block = std::span<i32, history_length>;

// The short windows of a frame, and the slopes of its transition windows, lie in the middle of each half.
constexpr u32 flat_length = (frame_length - short_length) / 2;  // 448 samples before or after a short slope

constexpr i32 window_one_q23 = 1 << 23;

// The half window with a short slope: silence, slope, window value 1.
HalfWindow short_slope(std::span<i32, frame_length> half) {
    for (u32 p = 0; p < flat_length; ++p) {
        half[p] = 0;
        half[frame_length - 1 - p] = window_one_q23;
    }
    for (u32 p = 0; p < short_length; ++p) half[flat_length + p] = TAVIK_SSW[p];
    return half;
}

// One half of a transition window on 1024 samples, read and written `step` = 1 or -1 apart: with a long slope, or a
// short one with its flat part shifted.
void window_half(const i32 *x, i32 *out, std::ptrdiff_t step, bool is_short_slope, u32 flat_shift) {
    for (u32 p = 0; p < frame_length; ++p, x += step, out += step) {
        if (!is_short_slope) {
            *out = windowed(*x, TAVIK_SLW[p]);
        } else if (p < flat_length) {
            *out = 0;
        } else if (p < flat_length + short_length) {
            *out = windowed(*x, TAVIK_SSW[p - flat_length]);
        } else {
            *out = shift_left(*x << 7, flat_shift);
        }
    }
}

// A long block with its flat parts shifted, which the encoder does not ask for.
void transform_shifted(History x, Block out, WindowSequence sequence, std::span<i32, frame_length> scratch,
                       u32 flat_shift) {
    constexpr u32 last = history_length - 1;
    window_half(x.data(), out.data(), 1, sequence == WindowSequence::long_stop, flat_shift);
    window_half(&x[last], &out[last], -1, sequence == WindowSequence::long_start, flat_shift);
    mdct(out, scratch);
}

// Short block w covers x[448 + 128 w ... 703 + 128 w] and is staged at out[128 w]: over the upper half of the block
// before, which its transform left alone.
void transform_short_blocks(History x, Block out, std::span<i32, short_length> scratch) {
    for (u32 w = 0; w < short_windows; ++w) {
        const auto block = out.subspan(w * short_length).first<2 * short_length>();
        const auto samples = x.subspan(flat_length + w * short_length).first<2 * short_length>();
        for (u32 p = 0; p < short_length; ++p) {
            block[p] = windowed(samples[p], TAVIK_SSW[p]);
            block[short_length + p] = windowed(samples[short_length + p], TAVIK_SSW[short_length - 1 - p]);
        }
        mdct(block, scratch);
    }
}

}  // namespace

void filter_bank(History x, Block out, WindowSequence sequence, std::span<i32, frame_length> scratch, u32 flat_shift) {
    if (sequence == WindowSequence::eight_short) {
        transform_short_blocks(x, out, scratch.first<short_length>());
    } else if (flat_shift != 0) {
        transform_shifted(x, out, sequence, scratch, flat_shift);
    } else {
        LongWindow window{TAVIK_SLW, TAVIK_SLW};
        if (sequence == WindowSequence::long_start) window.fall = short_slope(out.last<frame_length>());
        if (sequence == WindowSequence::long_stop) window.rise = short_slope(out.last<frame_length>());
        kernels::long_mdct(x, window, out.first<frame_length>(), scratch);
    }
}

void low_pass(Spectrum spectrum, u32 limit) {
    if (limit < frame_length) std::memset(&spectrum[limit], 0, (frame_length - limit) * sizeof(i32));
}

}  // namespace tavik
