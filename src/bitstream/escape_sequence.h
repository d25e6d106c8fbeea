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
    const auto zeros = static_cast<u32>(std::countl_zero(a));  // 27 - N
    const u32 length = 59 - 2 * zeros;
    return {a + (1u << length) - static_cast<u32>(u64{48} << 27 >> zeros), length};
}

static_assert(escape_sequence(16).code == 0 && escape_sequence(16).length == 5);
static_assert(escape_sequence(31).code == 15 && escape_sequence(31).length == 5);
static_assert(escape_sequence(32).code == 64 && escape_sequence(32).length == 7);
static_assert(escape_sequence(8191).code == (1 << 21) - (1 << 13) + 4095 && escape_sequence(8191).length == 21);

}  // namespace tavik
