// Tables of the 3/4 power of 8 a, a magnitude.
#pragma once

#include <array>

#include "common/fixed_point.h"

namespace tavik::tables {

// (8 a)^(3/4) of small magnitudes, rounded down (to the integer strictly below, also where the power is an integer).
// Most spectral lines are this small.
inline constexpr u32 small_pow34_entries = 2048;
extern const std::array<u16, small_pow34_entries> small_pow34;

// The same powers in Q11, behind them n^(3/4) in Q11, rounded down likewise, for n = 2^14 ... 2^15 - 1: those of all
// larger magnitudes are powers of two away. n stands at n - 2^14 + 2^11.
inline constexpr u32 pow34_table_begin = 1u << 14;  // first n
inline constexpr u32 pow34_entries = small_pow34_entries + pow34_table_begin;
extern const std::array<u32, pow34_entries> pow34_q11;

// For a magnitude 2^j times the table's range: round(16 2^(3 j / 4)), and the bits that the power gives up so that its
// product with that fits 32 bits: ceil(3 j / 4) from j = 3 on.
inline constexpr std::array<u16, 12> pow34_scale = {16, 27, 45, 76, 128, 215, 362, 609, 1024, 1722, 2896, 4871};
inline constexpr std::array<u8, 16> pow34_dropped_bits = {0, 0, 0, 3, 3, 4, 5, 6, 6, 7, 8, 9};

// The scales byte by byte, the low one first.
consteval std::array<u8, 32> make_pow34_scale_bytes() {
    std::array<u8, 32> bytes{};
    for (std::size_t j = 0; j < pow34_scale.size(); ++j) {
        bytes[2 * j] = static_cast<u8>(pow34_scale[j]);
        bytes[2 * j + 1] = static_cast<u8>(pow34_scale[j] >> 8);
    }
    return bytes;
}

inline constexpr std::array pow34_scale_bytes = make_pow34_scale_bytes();

}  // namespace tavik::tables
