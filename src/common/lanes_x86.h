// The operations of lanes.h that x86-64 has instructions for: SSE2 on every machine, SSE4.1 and AVX2 where the compiler
// may use them.
#pragma once

#include <immintrin.h>

#include <array>
#include <bit>

#include "common/lanes.h"

namespace tavik {

inline __m128i vector_of(I32<4> x) { return std::bit_cast<__m128i>(x.v); }
inline I32<4> lanes_of(__m128i x) { return {std::bit_cast<I32<4>::Vector>(x)}; }

// Words of 64 bits: sums, and the odd lanes of 32 bits in place of the even ones.
inline __m128i add_wide(__m128i a, __m128i b) { return _mm_add_epi64(a, b); }
inline __m128i odd_lanes(I32<4> x) { return _mm_srli_epi64(vector_of(x), 32); }

inline std::array<i32, 2> pair_numbers(I32<4> x, i32 radix) {
    const __m128i numbers = add_wide(_mm_mul_epu32(vector_of(x), _mm_set1_epi32(radix)), odd_lanes(x));  // low words
    return {_mm_cvtsi128_si32(numbers), _mm_cvtsi128_si32(_mm_unpackhi_epi64(numbers, numbers))};
}

inline i32 sum_of_lanes(I32<4> x) {
    const I32<4> pairs = x + lanes_of(_mm_shuffle_epi32(vector_of(x), 0x4E));
    return (pairs + lanes_of(_mm_shuffle_epi32(vector_of(pairs), 0xB1)))[0];
}
inline u32 sum_of_lanes(U32<4> x) { return static_cast<u32>(sum_of_lanes(x.as<i32>())); }

#if !defined(__SSE4_1__)

// From products of unsigned words: a word below 0 counts as 2^32 more, which adds the other word to the high word of
// the product.
template <u32 Shift>
inline I32<4> product(I32<4> a, I32<4> b) {
    const __m128i even = _mm_mul_epu32(vector_of(a), vector_of(b));
    const __m128i odd = _mm_mul_epu32(odd_lanes(a), odd_lanes(b));
    const __m128i in_odd_lanes = _mm_set_epi32(-1, 0, -1, 0);
    const I32<4> bits = lanes_of(_mm_or_si128(_mm_andnot_si128(in_odd_lanes, _mm_srli_epi64(even, Shift)),
                                              _mm_and_si128(in_odd_lanes, _mm_slli_epi64(odd, 32 - Shift))));
    return bits - ((((a >> 31) & b) + ((b >> 31) & a)) << (32 - Shift));
}

#else

inline I32<4> abs(I32<4> x) { return lanes_of(_mm_abs_epi32(vector_of(x))); }

// A shuffle of bytes takes the low four bits of an index below 128: saturation makes all beyond the table 128 or more.
inline U32<4> look_up_bytes(const ByteTable &table, U32<4> index) {
    const auto bytes = std::bit_cast<__m128i>(table);
    const __m128i in_table = _mm_adds_epu8(vector_of(index.as<i32>()), _mm_set1_epi8(0x70));
    return lanes_of(_mm_shuffle_epi8(bytes, in_table)).as<u32>();
}

// Products of even lanes and of odd ones, in 64 bits; the low words of both, shifted down, in their lanes; the sum.
inline __m128i even_products(I32<4> a, I32<4> b) { return _mm_mul_epi32(vector_of(a), vector_of(b)); }
inline __m128i odd_products(I32<4> a, I32<4> b) { return _mm_mul_epi32(odd_lanes(a), odd_lanes(b)); }
template <u32 Shift>
inline I32<4> shifted_down(__m128i even, __m128i odd) {
    return lanes_of(_mm_blend_epi16(_mm_srli_epi64(even, Shift), _mm_slli_epi64(odd, 32 - Shift), 0xCC));
}
inline i64 sum_of_wide(__m128i x) { return _mm_cvtsi128_si64(add_wide(x, _mm_unpackhi_epi64(x, x))); }

#if defined(__AVX2__)

inline __m256i vector_of(I32<8> x) { return std::bit_cast<__m256i>(x.v); }
inline I32<8> lanes_of(__m256i x) { return {std::bit_cast<I32<8>::Vector>(x)}; }
inline __m256i add_wide(__m256i a, __m256i b) { return _mm256_add_epi64(a, b); }
inline __m256i odd_lanes(I32<8> x) { return _mm256_srli_epi64(vector_of(x), 32); }

inline I32<8> abs(I32<8> x) { return lanes_of(_mm256_abs_epi32(vector_of(x))); }

inline __m256i even_products(I32<8> a, I32<8> b) { return _mm256_mul_epi32(vector_of(a), vector_of(b)); }
inline __m256i odd_products(I32<8> a, I32<8> b) { return _mm256_mul_epi32(odd_lanes(a), odd_lanes(b)); }
template <u32 Shift>
inline I32<8> shifted_down(__m256i even, __m256i odd) {
    return lanes_of(_mm256_blend_epi32(_mm256_srli_epi64(even, Shift), _mm256_slli_epi64(odd, 32 - Shift), 0xAA));
}
inline i64 sum_of_wide(__m256i x) {
    return sum_of_wide(add_wide(_mm256_castsi256_si128(x), _mm256_extracti128_si256(x, 1)));
}

#endif

// For four lanes and for eight.
template <u32 N>
struct WideLanesOfPairs {
    using Words = decltype(vector_of(I32<N>{}));
    Words even{};
    Words odd{};

    void add_product(I32<N> a, I32<N> b) {
        even = add_wide(even, even_products(a, b));
        odd = add_wide(odd, odd_products(a, b));
    }
    template <u32 Shift>
    I32<N> shifted_down() const {
        return tavik::shifted_down<Shift>(even, odd);
    }
};
template <u32 N>
struct WideTotalOfPairs {
    using Words = decltype(vector_of(I32<N>{}));
    Words sums{};

    void add_product(I32<N> a, I32<N> b) { sums = add_wide(add_wide(sums, even_products(a, b)), odd_products(a, b)); }
    i64 total() const { return sum_of_wide(sums); }
};

template <u32 Shift>
inline I32<4> product(I32<4> a, I32<4> b) {
    return shifted_down<Shift>(even_products(a, b), odd_products(a, b));
}
template <>
struct WideLanes<4> : WideLanesOfPairs<4> {};
template <>
struct WideTotal<4> : WideTotalOfPairs<4> {};

#if defined(__AVX2__)

template <u32 Shift>
inline I32<8> product(I32<8> a, I32<8> b) {
    return shifted_down<Shift>(even_products(a, b), odd_products(a, b));
}
template <>
struct WideLanes<8> : WideLanesOfPairs<8> {};
template <>
struct WideTotal<8> : WideTotalOfPairs<8> {};

#endif
#endif

}  // namespace tavik
