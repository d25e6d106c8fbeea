// How tuples of quantized values index the public Huffman tables; shared by the bit counter and the spectral writer.
#pragma once

#include "common/fixed_point.h"

namespace tavik::tables {

inline constexpr u32 zero_codebook = 0;  // a band without coded values
inline constexpr u32 escape_codebook = 11;
inline constexpr i32 escape_flag = 16;  // in codebook 11: the magnitude is at least 16; an escape sequence follows
inline constexpr i32 scale_factor_bias = 60;  // index of scale-factor difference 0

// Codebooks 1 and 2, values -1 ... 1.
inline constexpr u32 signed_quad_index_of_zeros = 40;
constexpr u32 signed_quad_index(const i32 *q) {
    return static_cast<u32>(27 * q[0] + 9 * q[1] + 3 * q[2] + q[3]) + signed_quad_index_of_zeros;
}

// Codebooks 3 and 4, magnitudes 0 ... 2.
constexpr u32 quad_index(const i32 *q) { return static_cast<u32>(27 * q[0] + 9 * q[1] + 3 * q[2] + q[3]); }

// Codebooks 5 and 6, values -4 ... 4.
inline constexpr u32 signed_pair_index_of_zeros = 40;
constexpr u32 signed_pair_index(const i32 *q) { return static_cast<u32>(9 * q[0] + q[1]) + signed_pair_index_of_zeros; }

// Codebooks 7 and 8 (magnitudes 0 ... 7, radix 8), 9 and 10 (magnitudes 0 ... 12, radix 13).
constexpr u32 pair_index(i32 first, i32 second, i32 radix) { return static_cast<u32>(radix * first + second); }

// Codebook 11: magnitudes up to the flag. GCC would compile std::min to a branch.
inline constexpr i32 escape_radix = 17;
constexpr i32 capped_at_escape_flag(i32 q) { return q < escape_flag ? q : escape_flag; }
constexpr bool is_escape_flag(i32 capped) { return (capped & escape_flag) != 0; }

// Codebook 11, any magnitudes.
constexpr u32 escape_pair_index(i32 first, i32 second) {
    return pair_index(capped_at_escape_flag(first), capped_at_escape_flag(second), escape_radix);
}

}  // namespace tavik::tables
