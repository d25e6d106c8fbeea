// Split-radix FFT: the complex transform inside the MDCT.
#pragma once

#include <span>

#include "quant/fixed_point.h"

namespace tavik {

// X[k] = sum x[n] e^(-j 2 pi n k / N) in place, natural order, gain N; N = 512 or 64. Error against the exact sum: some
// 200 units (N = 512) or 25 (N = 64) for inputs up to 2^20. Headroom: |re + im| < 2^29 at every stage.
template <std::size_t N>
void fft(std::span<i32, N> re, std::span<i32, N> im);

extern template void fft<512>(std::span<i32, 512>, std::span<i32, 512>);
extern template void fft<64>(std::span<i32, 64>, std::span<i32, 64>);

}  // namespace tavik
