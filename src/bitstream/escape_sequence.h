// Escape sequences of codebook 11 (ISO/IEC 14496-3): N ones, a zero, then |value| - 2^(N + 4) in N + 4 bits.
#pragma once

#include <bit>

#include "quant/fixed_point.h"

namespace tavik {

struct EscapeSequence {
    u32 code;    // right-aligned
    u32 length;  // bits: 5 ... 21
};

// |value| is 16 ... 8191.
constexpr EscapeSequence escape_sequence(i32 value) {
    const u32 a = magnitude(value);
    const auto ones = static_cast<u32>(std::bit_width(a >> 5));
    const u32 length = 2 * ones + 5;
    return {a + (1u << length) - (48u << ones), length};
}

static_assert(escape_sequence(16).code == 0 && escape_sequence(16).length == 5);
static_assert(escape_sequence(31).code == 15 && escape_sequence(31).length == 5);
static_assert(escape_sequence(32).code == 64 && escape_sequence(32).length == 7);
static_assert(escape_sequence(8191).code == (1 << 21) - (1 << 13) + 4095 && escape_sequence(8191).length == 21);

}  // namespace tavik
