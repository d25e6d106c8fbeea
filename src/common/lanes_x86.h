// The operations of lanes.h that x86-64 has instructions for: SSE2 on every machine, SSE4.1 and AVX2 where the compiler
// may use them.
#pragma once

#include <immintrin.h>

#include <array>
#include <bit>

#include "common/lanes.h"

namespace tavik {

// The 64-bit products of the even lanes, and of the odd ones; the wanted bits of each come to their lanes by a shift.
inline __m128i vector_of(I32<4> x) { return std::bit_cast<__m128i>(x.v); }
inline I32<4> lanes_of(__m128i x) { return {std::bit_cast<I32<4>::Vector>(x)}; }

#if defined(__SSE4_1__)
inline I32<4> abs(I32<4> x) { return lanes_of(_mm_abs_epi32(vector_of(x))); }

template <u32 Shift>
inline I32<4> product(I32<4> a, I32<4> b) {
    const __m128i even = _mm_mul_epi32(vector_of(a), vector_of(b));
    const __m128i odd = _mm_mul_epi32(_mm_srli_epi64(vector_of(a), 32), _mm_srli_epi64(vector_of(b), 32));
    return lanes_of(_mm_blend_epi16(_mm_srli_epi64(even, Shift), _mm_slli_epi64(odd, 32 - Shift), 0xCC));
}

// A shuffle of bytes takes the low four bits of an index below 128: saturation makes all beyond the table 128 or more.
inline U32<4> look_up_bytes(const ByteTable &table, U32<4> index) {
    const auto bytes = std::bit_cast<__m128i>(table);
    const __m128i in_table = _mm_adds_epu8(vector_of(index.as<i32>()), _mm_set1_epi8(0x70));
    return lanes_of(_mm_shuffle_epi8(bytes, in_table)).as<u32>();
}

template <>
struct WideLanes<4> {
    __m128i even = _mm_setzero_si128();
    __m128i odd = _mm_setzero_si128();

    void add_product(I32<4> a, I32<4> b) {
        even = _mm_add_epi64(even, _mm_mul_epi32(vector_of(a), vector_of(b)));
        odd = _mm_add_epi64(odd, _mm_mul_epi32(_mm_srli_epi64(vector_of(a), 32), _mm_srli_epi64(vector_of(b), 32)));
    }
    template <u32 Shift>
    I32<4> shifted_down() const {
        return lanes_of(_mm_blend_epi16(_mm_srli_epi64(even, Shift), _mm_slli_epi64(odd, 32 - Shift), 0xCC));
    }
};

template <>
struct WideTotal<4> {
    __m128i sums = _mm_setzero_si128();

    void add_product(I32<4> a, I32<4> b) {
        sums = _mm_add_epi64(sums, _mm_mul_epi32(vector_of(a), vector_of(b)));
        sums = _mm_add_epi64(sums, _mm_mul_epi32(_mm_srli_epi64(vector_of(a), 32), _mm_srli_epi64(vector_of(b), 32)));
    }
    i64 total() const { return _mm_cvtsi128_si64(_mm_add_epi64(sums, _mm_unpackhi_epi64(sums, sums))); }
};
#else
// Of unsigned words: what a word below 0 has too much, 2^32, takes the other word off the high word of the product.
template <u32 Shift>
inline I32<4> product(I32<4> a, I32<4> b) {
    const __m128i even = _mm_mul_epu32(vector_of(a), vector_of(b));
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(vector_of(a), 32), _mm_srli_epi64(vector_of(b), 32));
    const __m128i odd_lanes = _mm_set_epi32(-1, 0, -1, 0);
    const I32<4> bits = lanes_of(_mm_or_si128(_mm_andnot_si128(odd_lanes, _mm_srli_epi64(even, Shift)),
                                              _mm_and_si128(odd_lanes, _mm_slli_epi64(odd, 32 - Shift))));
    return bits - ((((a >> 31) & b) + ((b >> 31) & a)) << (32 - Shift));
}
#endif

// Pairs of lanes as words of 64 bits, whose low halves are the numbers.
inline __m128i pair_numbers_in_lanes(__m128i x, i32 radix) {
    return _mm_add_epi64(_mm_mul_epu32(x, _mm_set1_epi32(radix)), _mm_srli_epi64(x, 32));
}
inline std::array<i32, 2> pair_numbers(I32<4> x, i32 radix) {
    const __m128i numbers = pair_numbers_in_lanes(vector_of(x), radix);
    return {_mm_cvtsi128_si32(numbers), _mm_cvtsi128_si32(_mm_unpackhi_epi64(numbers, numbers))};
}
inline i32 quad_number(I32<4> x, i32 radix) {
    const auto [high, low] = pair_numbers(x, radix);
    return high * radix * radix + low;
}

inline i32 sum_of_lanes(I32<4> x) {
    const I32<4> pairs = x + lanes_of(_mm_shuffle_epi32(vector_of(x), 0x4E));
    return (pairs + lanes_of(_mm_shuffle_epi32(vector_of(pairs), 0xB1)))[0];
}
inline u32 sum_of_lanes(U32<4> x) { return static_cast<u32>(sum_of_lanes(x.as<i32>())); }

#if defined(__AVX2__)
inline __m256i vector_of(I32<8> x) { return std::bit_cast<__m256i>(x.v); }
inline I32<8> lanes_of(__m256i x) { return {std::bit_cast<I32<8>::Vector>(x)}; }

inline I32<8> abs(I32<8> x) { return lanes_of(_mm256_abs_epi32(vector_of(x))); }

template <u32 Shift>
inline I32<8> product(I32<8> a, I32<8> b) {
    const __m256i even = _mm256_mul_epi32(vector_of(a), vector_of(b));
    const __m256i odd = _mm256_mul_epi32(_mm256_srli_epi64(vector_of(a), 32), _mm256_srli_epi64(vector_of(b), 32));
    return lanes_of(_mm256_blend_epi32(_mm256_srli_epi64(even, Shift), _mm256_slli_epi64(odd, 32 - Shift), 0xAA));
}

template <>
struct WideLanes<8> {
    __m256i even = _mm256_setzero_si256();
    __m256i odd = _mm256_setzero_si256();

    void add_product(I32<8> a, I32<8> b) {
        even = _mm256_add_epi64(even, _mm256_mul_epi32(vector_of(a), vector_of(b)));
        odd = _mm256_add_epi64(
            odd, _mm256_mul_epi32(_mm256_srli_epi64(vector_of(a), 32), _mm256_srli_epi64(vector_of(b), 32)));
    }
    template <u32 Shift>
    I32<8> shifted_down() const {
        return lanes_of(_mm256_blend_epi32(_mm256_srli_epi64(even, Shift), _mm256_slli_epi64(odd, 32 - Shift), 0xAA));
    }
};

template <>
struct WideTotal<8> {
    __m256i sums = _mm256_setzero_si256();

    void add_product(I32<8> a, I32<8> b) {
        sums = _mm256_add_epi64(sums, _mm256_mul_epi32(vector_of(a), vector_of(b)));
        sums = _mm256_add_epi64(
            sums, _mm256_mul_epi32(_mm256_srli_epi64(vector_of(a), 32), _mm256_srli_epi64(vector_of(b), 32)));
    }
    i64 total() const {
        const __m128i pair = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        return _mm_cvtsi128_si64(_mm_add_epi64(pair, _mm_unpackhi_epi64(pair, pair)));
    }
};
#endif

}  // namespace tavik
