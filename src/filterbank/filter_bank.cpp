// Windows of the four window sequences, and the transform of each.
#include "filterbank/filter_bank.h"

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

// The samples of a block under a window of two halves.
void apply_window(std::span<const i32> x, std::span<const i32> rise, std::span<const i32> fall, std::span<i32> out) {
    const std::size_t n = rise.size();
    for (std::size_t p = 0; p < n; ++p) {
        out[p] = windowed(x[p], rise[p]);
        out[n + p] = windowed(x[n + p], fall[n - 1 - p]);
    }
}

// A long block with the flat part of a transition window shifted, which the encoder does not ask for.
void transform_shifted(History x, const LongWindow &window, Block out, WindowSequence sequence,
                       std::span<i32, frame_length> scratch, u32 flat_shift) {
    apply_window(x, window.rise, window.fall, out);
    if (sequence != WindowSequence::only_long) {
        i32 *flat = &out[sequence == WindowSequence::long_start ? frame_length : frame_length - flat_length];
        for (u32 p = 0; p < flat_length; ++p) flat[p] = shift_left(flat[p], flat_shift);
    }
    mdct(out, scratch);
}

// Short block w covers x[448 + 128 w ... 703 + 128 w] and is staged at out[128 w]: over the upper half of the block
// before, which its transform left alone.
void transform_short_blocks(History x, Block out, std::span<i32, short_length> scratch) {
    for (u32 w = 0; w < short_windows; ++w) {
        const auto block = out.subspan(w * short_length).first<2 * short_length>();
        apply_window(x.subspan(flat_length + w * short_length), TAVIK_SSW, TAVIK_SSW, block);
        mdct(block, scratch);
    }
}

}  // namespace

// A slope is kept in scratch where the windowed block needs all of `out`.
void filter_bank(History x, Block out, WindowSequence sequence, std::span<i32, frame_length> scratch, u32 flat_shift) {
    if (sequence == WindowSequence::eight_short) return transform_short_blocks(x, out, scratch.first<short_length>());
    LongWindow window{TAVIK_SLW, TAVIK_SLW};
    if (sequence != WindowSequence::only_long) {
        const HalfWindow slope = short_slope(flat_shift == 0 ? out.last<frame_length>() : scratch);
        (sequence == WindowSequence::long_start ? window.fall : window.rise) = slope;
    }
    if (flat_shift == 0) {
        kernels::long_mdct(x, window, out.first<frame_length>(), scratch);
    } else {
        transform_shifted(x, window, out, sequence, scratch, flat_shift);
    }
}

void low_pass(Spectrum spectrum, u32 limit) {
    if (limit < frame_length) std::memset(&spectrum[limit], 0, (frame_length - limit) * sizeof(i32));
}

}  // namespace tavik
