// Windows of the four window sequences, and the transform of each.
#include "filterbank/filter_bank.h"

#include "filterbank/mdct.h"

namespace tavik {
namespace {

using History = std::span<const i32, history_length>;
using Block = std::span<i32, history_length>;

// The short windows of a frame, and the slopes of its transition windows, lie in the middle of each half.
constexpr u32 flat_length = (frame_length - short_length) / 2;  // 448 samples before or after a short slope

// Sample times window value (Q23) times 2^7: x 2^16 w / 2^32.
constexpr i32 windowed(i32 x, i32 window_q23) { return mulhi(x << 16, window_q23); }

// out[p] = x[p] under the rising half-window that starts at p = begin.
template <std::size_t N>
void rise(History x, Block out, u32 begin, const i32 (&window)[N]) {
    for (u32 p = 0; p < N; ++p) out[begin + p] = windowed(x[begin + p], window[p]);
}

template <std::size_t N>
void fall(History x, Block out, u32 begin, const i32 (&window)[N]) {
    for (u32 p = 0; p < N; ++p) out[begin + p] = windowed(x[begin + p], window[N - 1 - p]);
}

// Window value 1: the sample times 2^7.
void flat(History x, Block out, u32 begin, u32 count, u32 shift) {
    for (u32 p = begin; p < begin + count; ++p) out[p] = shift_left(x[p] << 7, shift);
}

void silent(Block out, u32 begin, u32 count) {
    for (u32 p = begin; p < begin + count; ++p) out[p] = 0;
}

void window_long_start(History x, Block out, u32 flat_shift) {
    rise(x, out, 0, TAVIK_SLW);
    flat(x, out, frame_length, flat_length, flat_shift);
    fall(x, out, frame_length + flat_length, TAVIK_SSW);
    silent(out, history_length - flat_length, flat_length);
}

void window_long_stop(History x, Block out, u32 flat_shift) {
    silent(out, 0, flat_length);
    rise(x, out, flat_length, TAVIK_SSW);
    flat(x, out, flat_length + short_length, flat_length, flat_shift);
    fall(x, out, frame_length, TAVIK_SLW);
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
        mdct<short_length>(block, scratch);
    }
}

}  // namespace

void filter_bank(History x, Block out, WindowSequence sequence, std::span<i32, frame_length> scratch, u32 flat_shift) {
    switch (sequence) {
        case WindowSequence::only_long:
            rise(x, out, 0, TAVIK_SLW);
            fall(x, out, frame_length, TAVIK_SLW);
            break;
        case WindowSequence::long_start: window_long_start(x, out, flat_shift); break;
        case WindowSequence::long_stop: window_long_stop(x, out, flat_shift); break;
        case WindowSequence::eight_short: transform_short_blocks(x, out, scratch.first<short_length>()); return;
    }
    mdct<frame_length>(out, scratch);
}

void low_pass(Spectrum spectrum, u32 limit) {
    for (u32 k = limit; k < frame_length; ++k) spectrum[k] = 0;
}

}  // namespace tavik
