// Rotations and bit reversals of the FFT, computed from their formulas.
#pragma once

#include <array>
#include <bit>

#include "tables/trigonometry.h"

namespace tavik::tables {

// The rotation by an eighth turn, about cos(pi / 4) in Q31 (0x5A82799A to nearest). Every stream depends on this very
// value, so it stays.
inline constexpr i32 cos_eighth_turn_q31 = 0x5A827B70;

// Rotations of the FFT steps of size L = 16, 32 ... 512 by a = 2 pi i / L and by 3 a, i < L/4, Q30. Six values each,
// c1 = cos a, p1 = -(cos a + sin a), q1 = sin a - cos a, then c3, p3, q3 of 3 a. Those of some neighbours lie together:
// as many values of c1, then of p1 ... On AArch64 these are four neighbours, and only the steps of 512, 128 and 32 have
// rotations of their own: those of half the size are every second one of them. Elsewhere they are a whole step, of
// every size.
inline constexpr u32 smallest_rotated_step = 16;
inline constexpr u32 largest_step = 512;

constexpr bool every_step_has_rotations =
#if defined(__aarch64__)
    false;
#else
    true;
#endif

// The step whose rotations one of this size takes, 1 or `rotation_stride` apart.
constexpr u32 step_with_rotations(u32 step) {
    return every_step_has_rotations || std::countr_zero(step) % 2 == 1 ? step : 2 * step;
}
constexpr u32 rotation_stride(u32 step) { return step_with_rotations(step) == step ? 1 : 2; }

// How many neighbours lie together.
constexpr u32 rotation_run([[maybe_unused]] u32 step) { return every_step_has_rotations ? step / 4 : 4; }

// Where the rotations of a step begin. Those of its quarter, or of its half, lie before them, and so on.
constexpr u32 fft_rotations_begin(u32 step) {
    const u32 own = step_with_rotations(step);
    return every_step_has_rotations ? (own - smallest_rotated_step) * 6 / 4 : (own - 2 * smallest_rotated_step) / 2;
}

inline constexpr u32 fft_rotations_size = fft_rotations_begin(largest_step) + largest_step / 4 * 6;

consteval std::array<i32, fft_rotations_size> make_fft_rotations() {
    std::array<i32, fft_rotations_size> table{};
    for (u32 step = smallest_rotated_step; step <= largest_step; step *= 2) {
        if (step_with_rotations(step) != step) continue;
        const u32 run = rotation_run(step);
        for (u32 i = 0; i < step / 4; ++i) {
            for (u32 quarter = 0; quarter < 2; ++quarter) {  // angles a and 3 a
                const i64 turns = i64{1 + 2 * quarter} * 2 * i;
                const i128 cosine = cos_pi(turns, step);
                const i128 sine = sin_pi(turns, step);
                i32 *entry = &table[fft_rotations_begin(step) + (i / run * 6 + quarter * 3) * run + i % run];
                entry[0] = static_cast<i32>(round_q60(cosine, 30));
                entry[run] = static_cast<i32>(round_q60(-(cosine + sine), 30));
                entry[2 * run] = static_cast<i32>(round_q60(sine - cosine, 30));
                if (i != step / 8) continue;
                entry[0] = quarter == 0 ? cos_eighth_turn_q31 / 2 : -cos_eighth_turn_q31 / 2;
                entry[quarter == 0 ? 2 * run : run] = 0;
            }
        }
    }
    return table;
}

// At i = L/8 the entries are those of an eighth turn: c1 = cos(pi / 4), q1 = 0, c3 = -c1, p3 = 0. With them re of the
// first and im of the second rotation come out as products of one rounding, as they have to.
inline constexpr std::array fft_rotations = make_fft_rotations();

// The indices below N, a power of two, with their bits in reverse order.
template <std::size_t N>
consteval std::array<u8, N> bit_reversal() {
    constexpr u32 bits = std::countr_zero(N);
    std::array<u8, N> reversed{};
    for (u32 i = 0; i < reversed.size(); ++i) {
        for (u32 bit = 0; bit < bits; ++bit) {
            if ((i >> bit & 1) != 0) reversed[i] = static_cast<u8>(reversed[i] | 1u << (bits - 1 - bit));
        }
    }
    return reversed;
}

inline constexpr std::array<u8, 32> reversed_5_bits = bit_reversal<32>();
inline constexpr std::array<u8, 16> reversed_4_bits = bit_reversal<16>();
inline constexpr std::array<u8, 8> reversed_3_bits = bit_reversal<8>();

}  // namespace tavik::tables
