// Rotations and bit reversals of the FFT, computed from their formulas.
#pragma once

#include <array>

#include "tables/trigonometry.h"

namespace tavik::tables {

// Rotations of the FFT step of size L by a = 2 pi k / L and by 3 a, Q30, in six runs of L/4 - 2 entries:
// c1 = cos a, p1 = -(cos a + sin a), q1 = sin a - cos a, then c3, p3, q3 of 3 a.
// Entry i belongs to the i-th k of 1 ... L/4 - 1 without L/8, whose rotations take no table.
template <std::size_t L>
constexpr std::array<i32, 6 * (L / 4 - 2)> make_fft_rotations() {
    constexpr std::size_t run = L / 4 - 2;
    std::array<i32, 6 * run> table{};
    std::size_t i = 0;
    for (std::size_t k = 1; k < L / 4; ++k) {
        if (k == L / 8) continue;
        for (std::size_t quarter = 0; quarter < 2; ++quarter) {  // angles a and 3 a
            const auto turns = static_cast<i64>((1 + 2 * quarter) * 2 * k);
            const i128 cosine = cos_pi(turns, L);
            const i128 sine = sin_pi(turns, L);
            table[(3 * quarter + 0) * run + i] = static_cast<i32>(round_q60(cosine, 30));
            table[(3 * quarter + 1) * run + i] = static_cast<i32>(round_q60(-(cosine + sine), 30));
            table[(3 * quarter + 2) * run + i] = static_cast<i32>(round_q60(sine - cosine, 30));
        }
        ++i;
    }
    return table;
}

template <std::size_t L>
inline constexpr std::array<i32, 6 * (L / 4 - 2)> fft_rotations = make_fft_rotations<L>();

static_assert(fft_rotations<16> ==
              std::array<i32, 12>{992008094, 410903207, -1402911301, -1402911301, -581104888, 581104888,   // a
                                  410903207, -992008094, -1402911301, 1402911301, 581104888, 581104888});  // 3 a

// The rotation by an eighth turn, about cos(pi / 4) in Q31 (0x5A82799A to nearest). Every stream depends on this very
// value, so it stays.
inline constexpr i32 cos_eighth_turn_q31 = 0x5A827B70;

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
inline constexpr std::array<u8, 8> reversed_3_bits = bit_reversal<3>();

}  // namespace tavik::tables
