// Made from the standard's codebooks by the compiler.
#include "tables/packed_lengths.h"

#include "tables/codeword_lengths.h"

namespace tavik::tables {
namespace {

template <std::size_t N>
consteval std::array<u32, N> packed(const std::array<u32, N> &lower, const std::array<u32, N> &higher) {
    std::array<u32, N> pairs{};
    for (std::size_t i = 0; i < N; ++i) pairs[i] = higher[i] << 16 | lower[i];
    return pairs;
}

template <std::size_t N>
consteval std::array<u8, N> bytes(const std::array<u32, N> &values) {
    std::array<u8, N> result{};
    for (std::size_t i = 0; i < N; ++i) result[i] = static_cast<u8>(values[i]);
    return result;
}

}  // namespace

constexpr std::array<u32, 81> signed_quad_lengths = packed(lengths(codebook_1), lengths(codebook_2));
constexpr std::array<u32, 81> quad_lengths =
    packed(lengths_with_signs(codebook_3, 3), lengths_with_signs(codebook_4, 3));
constexpr std::array<u32, 81> signed_pair_lengths = packed(lengths(codebook_5), lengths(codebook_6));
constexpr std::array<u32, 64> pair_8_lengths =
    packed(lengths_with_signs(codebook_7, 8), lengths_with_signs(codebook_8, 8));
constexpr std::array<u32, 169> pair_13_lengths =
    packed(lengths_with_signs(codebook_9, 13), lengths_with_signs(codebook_10, 13));
constexpr std::array<u8, 289> escape_pair_lengths = bytes(lengths_with_signs(codebook_11, 17));

}  // namespace tavik::tables
