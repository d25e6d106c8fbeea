// Computed from the standard's codebooks at compile time.
#include "tables/packed_lengths.h"

#include "tables/codeword_lengths.h"

namespace tavik::tables {
namespace {

// Evaluated at compile time, where a length or difference that does not fit is an error.
template <std::size_t N>
consteval std::array<PackedLength, N> packed(const std::array<u32, N> &lower, const std::array<u32, N> &higher) {
    constexpr u32 max_tuples = 128;
    std::array<PackedLength, N> table{};
    for (std::size_t i = 0; i < N; ++i) {
        const i32 difference = static_cast<i32>(higher[i]) - static_cast<i32>(lower[i]);
        const i32 length = difference * (1 << packed_length_bits) + static_cast<i32>(lower[i]);
        table[i] = static_cast<PackedLength>(length);
        if (table[i] != length || lower[i] * max_tuples >> packed_length_bits != 0) __builtin_unreachable();
    }
    return table;
}

}  // namespace

constexpr std::array<PackedLength, 81> signed_quad_lengths = packed(lengths(codebook_1), lengths(codebook_2));
constexpr std::array<PackedLength, 81> quad_lengths =
    packed(lengths_with_signs(codebook_3, 3), lengths_with_signs(codebook_4, 3));
constexpr std::array<PackedLength, 81> signed_pair_lengths = packed(lengths(codebook_5), lengths(codebook_6));
constexpr std::array<PackedLength, 64> pair_8_lengths =
    packed(lengths_with_signs(codebook_7, 8), lengths_with_signs(codebook_8, 8));
constexpr std::array<PackedLength, 169> pair_13_lengths =
    packed(lengths_with_signs(codebook_9, 13), lengths_with_signs(codebook_10, 13));

}  // namespace tavik::tables
