// Escape sequences of codebook 11 (ISO/IEC 14496-3): N ones, a zero, then |value| - 2^(N + 4) in N + 4 bits.
#pragma once

#include <bit>

#include "common/fixed_point.h"

namespace tavik {

struct EscapeSequence {
    u32 code;    // right-aligned
    u32 length;  // bits: 5 ... 21
};

// For a magnitude a of 16 ... 8191: (2^N - 1) 2^(N + 5) + a - 2^(N + 4) in 2 N + 5 bits.
constexpr EscapeSequence escape_sequence(u32 a) {
    const auto zeros = static_cast<u32>(std::countl_zero(a));  // 27 - N
    const u32 length = 59 - 2 * zeros;
    const u32 end = 1u << length;  // NOLINT(clang-analyzer-core.UndefinedBinaryOperatorResult): a != 0
    return {a + end - static_cast<u32>(u64{48} << 27 >> zeros), length};
}

static_assert(escape_sequence(16u).code == 0 && escape_sequence(16u).length == 5);
static_assert(escape_sequence(31u).code == 15 && escape_sequence(31u).length == 5);
static_assert(escape_sequence(32u).code == 64 && escape_sequence(32u).length == 7);
static_assert(escape_sequence(8191u).code == (1 << 21) - (1 << 13) + 4095 && escape_sequence(8191u).length == 21);

}  // namespace tavik
