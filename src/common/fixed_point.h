// The arithmetic vocabulary of the encoder: integers only, every result defined for every operand.
//
// How the scale of the signal develops, for 16-bit input:
//
//   PCM sample                  16 bits    |x| <= 2^15
//   windowed sample             x 2^7      |x| <= 2^22
//   folded, pre-rotated         x 2 / 16   |x| <  2^20   4 bits of headroom for the FFT
//   FFT output                  x <= 512   |x| <  2^29   no stage scales
//   spectral coefficient        / 32       |x| <  2^24   1/4 of the transform sum in PCM units
//   3/4 power                   (8 |x|)^(3/4), 0 or 4 ... 741381
//   quantized value             |q| <= 8191
#pragma once

#include <bit>
#include <cstdint>
#include <limits>

namespace tavik {

using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

// Two's complement addition, subtraction, negation and multiplication that wrap. Shifts and narrowing conversions of
// signed integers are defined by C++20 itself.
constexpr i32 wrap_add(i32 a, i32 b) { return static_cast<i32>(static_cast<u32>(a) + static_cast<u32>(b)); }
constexpr i32 wrap_sub(i32 a, i32 b) { return static_cast<i32>(static_cast<u32>(a) - static_cast<u32>(b)); }
constexpr i32 wrap_mul(i32 a, i32 b) { return static_cast<i32>(static_cast<u32>(a) * static_cast<u32>(b)); }
constexpr i64 wrap_add(i64 a, i64 b) { return static_cast<i64>(static_cast<u64>(a) + static_cast<u64>(b)); }
constexpr i64 wrap_sub(i64 a, i64 b) { return static_cast<i64>(static_cast<u64>(a) - static_cast<u64>(b)); }
constexpr i64 wrap_neg(i64 a) { return wrap_sub(i64{0}, a); }

// Magnitude as an unsigned value: exact for the smallest integer too.
constexpr u32 magnitude(i32 x) { return x < 0 ? 0u - static_cast<u32>(x) : static_cast<u32>(x); }
constexpr u64 magnitude(i64 x) { return x < 0 ? u64{0} - static_cast<u64>(x) : static_cast<u64>(x); }

// Magnitude kept signed; that of -2^31 wraps to itself.
constexpr i32 wrap_abs(i32 x) { return static_cast<i32>(magnitude(x)); }

// Left shift that drops what leaves the word, for any count.
constexpr i32 shift_left(i32 x, u32 count) { return count < 32 ? x << count : 0; }

// v 2^s: a left shift saturates where the result leaves 64 bits, a right shift (s < 0) rounds toward minus infinity.
constexpr i64 norm_shift(i64 v, i32 s) {
    if (s <= 0) return v >> (s > -64 ? -s : 63);
    if (v == 0) return 0;
    if (s < 64 && (v << s) >> s == v) return v << s;
    return v < 0 ? std::numeric_limits<i64>::min() : std::numeric_limits<i64>::max();
}

// The shift that brings the highest set bit of |x| to bit 46 (to [0.5, 1) in Q47): -17 ... 46; 0 for x = 0.
constexpr i32 q47_exponent(i64 x) { return x == 0 ? 0 : 47 - static_cast<i32>(std::bit_width(magnitude(x))); }

}  // namespace tavik
