// The order of the steps of a split-radix transform.
#pragma once

#include <bit>

#include "common/fixed_point.h"

namespace tavik {

// Calls f(p) for the start p of every transform of `size` values that a split-radix transform of n values consists of:
// one half and two quarters of a transform are transforms again, so that it is the first of n, of n / 2, the first
// and the last of four of n / 4 ... As values of equal sizes they recur at distances of 2, 8, 32 ... sizes.
template <typename F>
inline void for_each_transform(u32 n, u32 size, F f) {
    u32 distance = 2 * size;
    for (u32 begin = 0; begin < n; begin = 2 * distance - size, distance *= 4) {
        for (u32 p = begin; p < n; p += distance) f(p);
    }
}

// Whether the index-th run of equally many values is one of these transforms; of two quarters otherwise.
constexpr bool is_transform(u32 index) { return std::countr_one(index) % 2 == 0; }

}  // namespace tavik
