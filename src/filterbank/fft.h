// Split-radix FFT: the complex transform inside the MDCT.
#pragma once

#include <span>

#include "common/fixed_point.h"

namespace tavik {

// X[k] = sum x[n] e^(-j 2 pi n k / N) in place, natural order, gain N; N = 512 or 64. Error against the exact sum: some
// 200 units (N = 512) or 25 (N = 64) for inputs up to 2^20. Headroom: |re + im| < 2^29 at every stage.
void fft(std::span<i32> re, std::span<i32> im);

#if defined(__aarch64__)
namespace neon {

// Complex values in quads: of every four neighbours the four real parts, then the four imaginary parts.
inline constexpr u32 quad_words = 8;

// The words of the n-th value.
constexpr u32 quad_re(u32 n) { return n / 4 * quad_words + n % 4; }
constexpr u32 quad_im(u32 n) { return quad_re(n) + 4; }

inline constexpr u32 fft_512_words = 2 * 512;

// The same values as fft() gives within the headroom, for N = 512, from the quads z to the quads `out`. z is work space
// then; they must not overlap.
void fft_512(std::span<i32, fft_512_words> z, std::span<i32, fft_512_words> out);

}  // namespace neon
#endif

}  // namespace tavik
