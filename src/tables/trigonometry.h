// Sines of rational multiples of pi for the compile-time tables, in integers. None of this runs in the encoder; it is
// constexpr, not consteval, because Clang 14 does not let a template call a consteval function.
#pragma once

#include "common/fixed_point.h"

namespace tavik::tables {

__extension__ typedef __int128 i128;

inline constexpr int angle_q = 60;                 // fractional bits of angles and of results
inline constexpr i64 pi_q60 = 0x3243F6A8885A308D;  // pi
inline constexpr i64 one_q60 = i64{1} << angle_q;

constexpr i64 mul_q60(i64 a, i64 b) { return static_cast<i64>((i128{a} * b) >> angle_q); }

// Taylor series of sine (first = 1) or cosine (first = 0) for 0 <= x <= pi / 4, in Q60: error below 2^-55.
constexpr i64 taylor_q60(i64 x, int first) {
    const i64 square = mul_q60(x, x);
    i64 term = first == 1 ? x : one_q60;
    i64 sum = term;
    for (int n = first + 1; term != 0; n += 2) {
        term = -(mul_q60(term, square) / (n * (n + 1)));
        sum += term;
    }
    return sum;
}

// sin(pi numerator / denominator) in Q60, for numerator >= 0; exact at multiples of pi / 2.
constexpr i64 sin_pi(i64 numerator, i64 denominator) {  // NOLINT(misc-no-recursion): at compile time, two deep
    const i64 n = numerator % (2 * denominator);
    if (n > denominator) return -sin_pi(n - denominator, denominator);
    if (2 * n > denominator) return sin_pi(denominator - n, denominator);
    if (4 * n <= denominator) return taylor_q60(static_cast<i64>(i128{pi_q60} * n / denominator), 1);
    // sin a = cos(pi / 2 - a)
    return taylor_q60(static_cast<i64>(i128{pi_q60} * (denominator - 2 * n) / (2 * denominator)), 0);
}

// cos a = sin(a + pi / 2)
constexpr i64 cos_pi(i64 numerator, i64 denominator) { return sin_pi(2 * numerator + denominator, 2 * denominator); }

// Rounds a Q60 value (or the sum of two) to `q` fractional bits, to nearest; no table has a tie.
constexpr i64 round_q60(i128 value, int q) {
    return static_cast<i64>((value + (i128{1} << (angle_q - q - 1))) >> (angle_q - q));
}

static_assert(sin_pi(0, 4) == 0 && sin_pi(1, 2) == one_q60 && cos_pi(0, 1) == one_q60 && cos_pi(1, 1) == -one_q60);
static_assert(round_q60(sin_pi(1, 6), 30) == 1 << 29 && round_q60(cos_pi(2, 3), 30) == -(1 << 29));

}  // namespace tavik::tables
