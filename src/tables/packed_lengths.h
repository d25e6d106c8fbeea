// Codeword lengths as the bit counter reads them: of both codebooks of a pair in one word, so that one read and one
// addition count a tuple under both.
#pragma once

#include <array>

#include "quant/fixed_point.h"

namespace tavik::tables {

// The lower codebook's length in the low half, the higher one's in the high half; indexed like the codebooks
// themselves. Where they code magnitudes, the sign bits are included.
extern const std::array<u32, 81> signed_quad_lengths;  // codebooks 1 and 2
extern const std::array<u32, 81> quad_lengths;         // 3 and 4
extern const std::array<u32, 81> signed_pair_lengths;  // 5 and 6
extern const std::array<u32, 64> pair_8_lengths;       // 7 and 8
extern const std::array<u32, 169> pair_13_lengths;     // 9 and 10

// Codebook 11 with sign bits, without escape sequences.
extern const std::array<u8, 289> escape_pair_lengths;

}  // namespace tavik::tables
