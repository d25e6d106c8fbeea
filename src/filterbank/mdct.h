// MDCT of one windowed block: fold, rotate, FFT, rotate.
#pragma once

#include <span>

#include "quant/fixed_point.h"

namespace tavik {

// buf[k] = 2^-9 sum over p < 2n of buf[p] cos(2 pi / 2n (p + n0)(k + 1/2)), n0 = (n + 1) / 2, k < n: the standard's
// analysis MDCT / 1024, the same gain for both sizes, n = 1024 and 128. In: 2n samples up to about 2^22. Out: n
// coefficients, within some 20 units of the exact sum; the upper half of buf is left as it was. scratch: n entries.
template <std::size_t N>
void mdct(std::span<i32, 2 * N> buf, std::span<i32, N> scratch);

extern template void mdct<1024>(std::span<i32, 2048>, std::span<i32, 1024>);
extern template void mdct<128>(std::span<i32, 256>, std::span<i32, 128>);

}  // namespace tavik
