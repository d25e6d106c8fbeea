// The windows of the four window sequences, and their transforms.
#include "filterbank/filter_bank.h"

#include <cstring>

#include "filterbank/mdct.h"

namespace tavik {
namespace {

using History = std::span<const i32, history_length>;
using Block = std::span<i32, history_length>;

// A short slope is in the middle of a half window, between flat parts; the short windows begin there too.
constexpr u32 flat_length = (frame_length - short_length) / 2;  // 448 samples before and after a short slope

constexpr i32 window_one_q23 = 1 << 23;

// The half window with a short slope: window values 0, slope, window values 1.
const i32 *short_slope(std::span<i32, frame_length> half) {
    for (u32 p = 0; p < flat_length; ++p) {
        half[p] = 0;
        half[frame_length - 1 - p] = window_one_q23;
    }
    copy_elements(TAVIK_SSW, short_length, &half[flat_length]);
    return half.data();
}

// A long block with the flat part of a transition window shifted, which the encoder itself does not use.
void transform_shifted(History x, const Window &window, Block out, WindowSequence sequence,
                       std::span<i32, frame_length> scratch, u32 flat_shift) {
    constexpr ApplyWindow apply;
    for (u32 p = 0; p < frame_length; ++p) {
        out[p] = apply(I32<1>{x[p]}, I32<1>{window.rise[p]}).v;
        out[frame_length + p] = apply(I32<1>{x[frame_length + p]}, I32<1>{window.fall[frame_length - 1 - p]}).v;
    }
    if (sequence != WindowSequence::only_long) {
        i32 *flat = &out[sequence == WindowSequence::long_start ? frame_length : frame_length - flat_length];
        for (u32 p = 0; p < flat_length; ++p) flat[p] = shift_left(flat[p], flat_shift);
    }
    mdct(out, scratch);
}

// Short block w covers x[448 + 128 w ... 703 + 128 w].
void transform_short_blocks(History x, Block out, std::span<i32, frame_length> scratch) {
    for (u32 w = 0; w < short_windows; ++w) {
        short_mdct(&x[flat_length + w * short_length], {TAVIK_SSW, TAVIK_SSW}, &out[w * short_length], scratch.data());
    }
}

}  // namespace

// The slope is put into scratch if the windowed block needs all of `out`.
void filter_bank(History x, Block out, WindowSequence sequence, std::span<i32, frame_length> scratch, u32 flat_shift) {
    if (sequence == WindowSequence::eight_short) return transform_short_blocks(x, out, scratch);
    const i32 *slope = sequence == WindowSequence::only_long
                           ? TAVIK_SLW
                           : short_slope(flat_shift == 0 ? out.last<frame_length>() : scratch);
    const Window window{sequence == WindowSequence::long_stop ? slope : TAVIK_SLW,
                        sequence == WindowSequence::long_start ? slope : TAVIK_SLW};
    if (flat_shift == 0) {
        long_mdct(x.data(), window, out.data(), scratch.data());
    } else {
        transform_shifted(x, window, out, sequence, scratch, flat_shift);
    }
}

void low_pass(Spectrum spectrum, u32 limit) {
    if (limit < frame_length) std::memset(&spectrum[limit], 0, (frame_length - limit) * sizeof(i32));
}

}  // namespace tavik
