// Rotations and bit reversals of the FFT, computed from their formulas.
#pragma once

#include <array>

#include "tables/trigonometry.h"

namespace tavik::tables {

// The rotation by an eighth turn, about cos(pi / 4) in Q31 (0x5A82799A to nearest). Every stream depends on this very
// value, so it stays.
inline constexpr i32 cos_eighth_turn_q31 = 0x5A827B70;

// Rotations of the FFT steps of size L = 16, 32 ... 512 by a = 2 pi i / L and by 3 a, i < L/4, Q30, step after step in
// one array. A step has six runs, c1 = cos a, p1 = -(cos a + sin a), q1 = sin a - cos a, then c3, p3, q3 of 3 a, for
// every rotation_run() values of i: four where vectors are loaded one by one, otherwise all.
inline constexpr u32 smallest_rotated_step = 16;
inline constexpr u32 largest_step = 512;

constexpr u32 rotation_run([[maybe_unused]] u32 step) {
#if defined(__aarch64__)
    return 4;
#else
    return step / 4;
#endif
}

constexpr u32 fft_rotations_begin(u32 step) { return (step - smallest_rotated_step) * 6 / 4; }

consteval std::array<i32, fft_rotations_begin(2 * largest_step)> make_fft_rotations() {
    std::array<i32, fft_rotations_begin(2 * largest_step)> table{};
    for (u32 step = smallest_rotated_step; step <= largest_step; step *= 2) {
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

static_assert(std::array{fft_rotations[1], fft_rotations[5], fft_rotations[9]} ==
              std::array{992008094, -1402911301, -581104888});  // L = 16, i = 1: a
static_assert(std::array{fft_rotations[15], fft_rotations[19], fft_rotations[23]} ==
              std::array{-992008094, 1402911301, 581104888});  // i = 3: 3 a

template <std::size_t Bits>
consteval std::array<u8, std::size_t{1} << Bits> bit_reversal() {
    std::array<u8, std::size_t{1} << Bits> reversed{};
    for (u32 i = 0; i < reversed.size(); ++i) {
        for (u32 bit = 0; bit < Bits; ++bit) {
            if ((i >> bit & 1) != 0) reversed[i] = static_cast<u8>(reversed[i] | 1u << (Bits - 1 - bit));
        }
    }
    return reversed;
}

inline constexpr std::array<u8, 32> reversed_5_bits = bit_reversal<5>();
inline constexpr std::array<u8, 16> reversed_4_bits = bit_reversal<4>();
inline constexpr std::array<u8, 8> reversed_3_bits = bit_reversal<3>();

}  // namespace tavik::tables
