// Tables of the 3/4 power.
#pragma once

#include <array>

#include "quant/fixed_point.h"

namespace tavik::tables {

// Entry n stands for n^(3/4) = m 2^(e - 23): m in bits 31 ... 8, e in bits 7 ... 0. For 1 <= n < 16384 m is normalised
// to [2^22, 2^23), or 2^22 - 1 where n^(3/4) is a power of two, since m lies strictly below it; from 16384 on e is 12.
inline constexpr u32 pow34_entries = 32768;
extern const std::array<u32, pow34_entries> pow34_table;

// floor((8 a)^(3/4)) of the magnitudes that most spectral lines have.
inline constexpr u32 small_pow34_entries = 1024;
extern const std::array<u16, small_pow34_entries> small_pow34;

// For a magnitude 2^j times the table's range: round(16 2^(3 j / 4)), and the bits that the mantissa gives up so that
// its product with that fits 32 bits: ceil(3 j / 4) from j = 3 on.
inline constexpr std::array<u16, 12> pow34_scale = {16, 27, 45, 76, 128, 215, 362, 609, 1024, 1722, 2896, 4871};
inline constexpr std::array<u8, 12> pow34_dropped_bits = {0, 0, 0, 3, 3, 4, 5, 6, 6, 7, 8, 9};

}  // namespace tavik::tables
