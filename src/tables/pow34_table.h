// Tables of the 3/4 power of 8 a, a magnitude.
#pragma once

#include <array>

#include "common/fixed_point.h"

namespace tavik::tables {

// The results of pow34() for magnitudes below 2^13: most spectral lines are this small. Rounded down (to the integer
// strictly below, even if the power is an integer) below 2^12, and from there on computed as for large magnitudes. The
// table is monotonic; the computation is not, at each power of two from 2^13 on.
inline constexpr u32 small_pow34_entries = 1u << 13;
extern const std::array<u16, small_pow34_entries> small_pow34;

// For larger magnitudes: n^(3/4) in Q11, rounded down likewise, for n = 2^14 ... 2^15 - 1, to which 8 a is scaled by a
// power of two. n is at index n - 2^14 + 2^11, after the powers of 8 a for a below 2^11.
inline constexpr u32 pow34_table_begin = 1u << 14;  // first n
inline constexpr u32 pow34_own_entries = 1u << 11;
inline constexpr u32 pow34_entries = pow34_own_entries + pow34_table_begin;
extern const std::array<u32, pow34_entries> pow34_q11;

// For a magnitude 2^j times the table's range: round(16 2^(3 j / 4)), and how many low bits of the power are dropped so
// that its product with this scale fits 32 bits: ceil(3 j / 4) from j = 3 on.
inline constexpr std::array<u16, 12> pow34_scale = {16, 27, 45, 76, 128, 215, 362, 609, 1024, 1722, 2896, 4871};
inline constexpr std::array<u8, 16> pow34_dropped_bits = {0, 0, 0, 3, 3, 4, 5, 6, 6, 7, 8, 9};

consteval std::array<u8, 16> make_pow34_scale_bytes(u32 byte) {
    std::array<u8, 16> bytes{};
    for (std::size_t j = 0; j < pow34_scale.size(); ++j) bytes[j] = static_cast<u8>(pow34_scale[j] >> 8 * byte);
    return bytes;
}

inline constexpr std::array pow34_scale_low = make_pow34_scale_bytes(0);
inline constexpr std::array pow34_scale_high = make_pow34_scale_bytes(1);

}  // namespace tavik::tables
