// Codeword lengths as the bit counter reads them: one number holds those in both codebooks of a pair, so that one read
// and one addition count a tuple under both.
#pragma once

#include <array>

#include "common/fixed_point.h"

namespace tavik::tables {

// The length in the lower codebook of a pair plus 2^12 times the difference, -8 ... 7: higher minus lower codebook.
// Sums over a band, of up to 128 tuples, have the same form. Indexed like the codebooks themselves; where these code
// magnitudes, sign bits are included.
inline constexpr u32 packed_length_bits = 12;
using PackedLength = i16;

constexpr u32 in_lower_codebook(i32 packed) { return static_cast<u32>(packed) % (1u << packed_length_bits); }
constexpr i32 more_in_higher_codebook(i32 packed) { return packed >> packed_length_bits; }

extern const std::array<PackedLength, 81> signed_quad_lengths;  // codebooks 1 and 2
extern const std::array<PackedLength, 81> quad_lengths;         // 3 and 4
extern const std::array<PackedLength, 81> signed_pair_lengths;  // 5 and 6
extern const std::array<PackedLength, 64> pair_8_lengths;       // 7 and 8
extern const std::array<PackedLength, 169> pair_13_lengths;     // 9 and 10

}  // namespace tavik::tables
