// mulhi() for loops, in a shape that compilers vectorise.
#pragma once

#include "common/fixed_point.h"

namespace tavik {

// mulhi(u, v). x86-64 before SSE4.1 has no vectors of signed products: there it is made from the product of the
// unsigned words, from whose high word v goes off for u < 0, which the unsigned u exceeds by 2^32, and u for v < 0.
constexpr i32 vector_mulhi(i32 u, i32 v) {
#if defined(__x86_64__) && !defined(__SSE4_1__)
    const auto a = static_cast<u32>(u);
    const auto b = static_cast<u32>(v);
    const auto high = static_cast<u32>((u64{a} * b) >> 32);
    return static_cast<i32>(high - (static_cast<u32>(u >> 31) & b) - (static_cast<u32>(v >> 31) & a));
#else
    return mulhi(u, v);
#endif
}

static_assert(vector_mulhi(-5, 7) == mulhi(-5, 7) && vector_mulhi(-5, -7) == mulhi(-5, -7));
static_assert(vector_mulhi(5, -7) == mulhi(5, -7) && vector_mulhi(i32{1} << 31, i32{1} << 31) == 1 << 30);

}  // namespace tavik
