// Windowing filter bank: 2048 samples of one channel to the 1024 coefficients of a frame; and the low-pass after it.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// Windows x (16-bit PCM values, older half first) as the window sequence asks, with sine windows, and transforms it.
// out[0 ... 1023]: the spectrum, 1/4 sum w[p] x[p] cos(...) in PCM units, below 2^24; for EIGHT_SHORT the eight short
// spectra one after the other. out[1024 ... 2047] is work space. `flat_shift` is an extra left shift of the flat window
// segments, 0 in the encoder. x must not overlap out.
void filter_bank(std::span<const i32, history_length> x, std::span<i32, history_length> out, WindowSequence sequence,
                 std::span<i32, frame_length> scratch, u32 flat_shift);

// Clears the coefficients from `limit` on; a limit of 1024 or more clears none.
void low_pass(Spectrum spectrum, u32 limit);

}  // namespace tavik
