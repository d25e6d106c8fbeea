// Quantizes one band and counts it under the codebooks that its largest magnitude calls for. One function for each
// pair of codebooks (ISO/IEC 14496-3), since the pairs differ in tuple size, range and sign convention. Four lines, a
// quad or two pairs, are taken at once.
#pragma once

#include "common/lanes.h"
#include "quant/power34.h"
#include "tables/escape_sequence.h"
#include "tables/huffman_tables.h"
#include "tables/packed_lengths.h"

namespace tavik {

// The lines of one band, `count` of each: a multiple of 4, at least 4.
struct BandLines {
    const u32 *pow34;
    const i32 *spectrum;  // for signs
    i32 *quantized;       // out: with signs under codebooks 1, 2, 5 and 6; magnitudes otherwise
    u32 count;
};

// Bits of a band under both codebooks of a pair: a sum of tables::PackedLength.
using PairBits = i32;

// `gain` below is TAVIK_ZOLF_ipow20 of a gain index of 58 or more (Q20). The products of a band whose largest value is
// 4095 or less fit 32 bits.
inline constexpr u32 max_of_32_bit_products = 4095;

inline I32<4> quantize(U32<4> pow34, U32<4> gain) {
    return ((pow34 * gain + U32<4>::all(q20_rounding)) >> 20).as<i32>();
}

// (magnitude ^ sign) - sign, with the sign of x as 0 or -1
inline I32<4> with_sign_of(I32<4> magnitude, I32<4> x) {
    const I32<4> sign = x >> 31;
    return (magnitude ^ sign) - sign;
}

// Stores the values quantize(pow34, spectrum) of each four lines and sums count(values).
template <typename Quantize, typename Count>
inline auto count_fours(const BandLines &band, Quantize quantize, Count count) {
    const u32 *v = band.pow34;
    const i32 *x = band.spectrum;
    i32 *out = band.quantized;
    const u32 *const end = v + band.count;
    decltype(count(I32<4>())) bits = 0;
    do {
        const I32<4> q = quantize(U32<4>::load(v), I32<4>::load(x));
        q.store(out);
        bits += count(q);
        v += 4, x += 4, out += 4;
    } while (v != end);
    return bits;
}

// Of two pairs.
template <typename Length>
inline auto pair_lengths(I32<4> q, i32 radix, const Length *lengths) {
    const auto [first, second] = pair_numbers(q, radix);
    return lengths[first] + lengths[second];
}

// Codebooks 1 and 2: values -1 ... 1, which one threshold tells from 0.
inline PairBits count_signed_quads(const BandLines &band, u32 gain) {
    const I32<4> threshold = I32<4>::all(static_cast<i32>(smallest_nonzero_pow34(gain)));
    const tables::PackedLength *const lengths = tables::signed_quad_lengths.data() + tables::signed_quad_index_of_zeros;
    return count_fours(
        band,
        [=](U32<4> pow34, I32<4> x) {
            return select(pow34.as<i32>() < threshold, I32<4>{}, (x >> 31) | I32<4>::all(1));
        },
        [=](I32<4> q) -> PairBits { return lengths[quad_number(q, 3)]; });
}

// Codebooks 3 and 4: magnitudes 0 ... 2.
inline PairBits count_quads(const BandLines &band, u32 gain) {
    const U32<4> gains = U32<4>::all(gain);
    const tables::PackedLength *const lengths = tables::quad_lengths.data();
    return count_fours(
        band, [=](U32<4> pow34, I32<4>) { return quantize(pow34, gains); },
        [=](I32<4> q) -> PairBits { return lengths[quad_number(q, 3)]; });
}

// Codebooks 5 and 6: values -4 ... 4.
inline PairBits count_signed_pairs(const BandLines &band, u32 gain) {
    const U32<4> gains = U32<4>::all(gain);
    const tables::PackedLength *const lengths = tables::signed_pair_lengths.data() + tables::signed_pair_index_of_zeros;
    return count_fours(
        band, [=](U32<4> pow34, I32<4> x) { return with_sign_of(quantize(pow34, gains), x); },
        [=](I32<4> q) { return pair_lengths(q, 9, lengths); });
}

// Codebooks 7 and 8 (radix 8) or 9 and 10 (radix 13), with their lengths: magnitudes below the radix.
inline PairBits count_pairs(const BandLines &band, u32 gain, const tables::PackedLength *lengths, i32 radix) {
    const U32<4> gains = U32<4>::all(gain);
    return count_fours(
        band, [=](U32<4> pow34, I32<4>) { return quantize(pow34, gains); },
        [=](I32<4> q) { return pair_lengths(q, radix, lengths); });
}

// What a magnitude below 2^15 takes beside its codeword, by its leading zeros in 16 bits: a sign bit, and from 16 on an
// escape sequence of 2 floor(log2 q) - 3 bits. Nothing for 0, which has 16.
inline constexpr std::array<u8, 16> sign_and_escape_bits = {0, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 1, 1, 1, 1};

// Codebook 11 where the products fit 32 bits. Without escape sequences, magnitudes of 16 and more, there are only signs
// to add.
template <bool HasEscapes>
inline u32 count_escape_pairs(const BandLines &band, u32 gain) {
    const U32<4> gains = U32<4>::all(gain);
    const I32<4> flag = I32<4>::all(tables::escape_flag);
    U32<4> more_bits{};
    const u32 bits = count_fours(
        band, [=](U32<4> pow34, I32<4>) { return quantize(pow34, gains); },
        [&](I32<4> q) {
            const U32<4> magnitudes = q.as<u32>();
            more_bits += HasEscapes ? look_up_bytes(sign_and_escape_bits, leading_zeros(magnitudes) - U32<4>::all(16))
                                    : min(magnitudes, U32<4>::all(1));
            return pair_lengths(min(q, flag), tables::escape_radix, TAVIK_ZOLF_huff110);
        });
    return bits + sum_of_lanes(more_bits);
}

// Codebook 11 under any gain: magnitudes up to 8191.
inline u32 count_large_escape_pairs(const BandLines &band, const GainRule &rule) {
    u32 bits = 0;
    for (u32 k = 0; k < band.count; ++k) {
        const auto q = static_cast<u32>(rule(band.pow34[k]));
        band.quantized[k] = static_cast<i32>(q);
        if (q != 0) ++bits;  // its sign
        if (q >= tables::escape_flag) bits += escape_sequence(q).length;
    }
    const i32 *q = band.quantized;
    for (u32 k = 0; k < band.count; k += 2) bits += TAVIK_ZOLF_huff110[tables::escape_pair_index(q[k], q[k + 1])];
    return bits;
}

}  // namespace tavik
