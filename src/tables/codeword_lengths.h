// Lengths of the standard's codewords, for the tables made from them at compile time.
#pragma once

#include <array>

#include "tables/huffman_codebooks.h"

namespace tavik::tables {

template <std::size_t N>
consteval std::array<u32, N> lengths(const Codebook<N> &book) {
    std::array<u32, N> lengths{};
    for (std::size_t i = 0; i < N; ++i) lengths[i] = book[i].length;
    return lengths;
}

// Index i holds a tuple of magnitudes as digits in the given radix; every digit that is not 0 adds a sign bit.
template <std::size_t N>
consteval std::array<u32, N> lengths_with_signs(const Codebook<N> &book, std::size_t radix) {
    std::array<u32, N> with_signs{};
    for (std::size_t i = 0; i < N; ++i) {
        with_signs[i] = book[i].length;
        for (std::size_t digits = i; digits != 0; digits /= radix) {
            if (digits % radix != 0) ++with_signs[i];
        }
    }
    return with_signs;
}

}  // namespace tavik::tables
