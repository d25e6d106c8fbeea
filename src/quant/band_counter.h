// Quantizes one band and counts it under the codebooks that its largest magnitude calls for. One function for each
// pair of codebooks (ISO/IEC 14496-3), since the pairs differ in tuple size, range and sign convention.
#pragma once

#include "interface/kernels.h"
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
inline constexpr u32 largest_of_32_bit_products = 4095;

namespace portable {

inline i32 quantize(u32 pow34, u32 gain) { return static_cast<i32>((pow34 * gain + q20_rounding) >> 20); }

// (magnitude ^ sign) - sign, with the sign of x as 0 or -1
inline i32 with_sign_of(i32 magnitude, i32 x) { return (magnitude ^ (x >> 31)) - (x >> 31); }

// Codebooks 1 and 2: values -1 ... 1, which one threshold tells from 0.
inline PairBits count_signed_quads(const BandLines &band, u32 gain) {
    const auto threshold = static_cast<i32>(smallest_nonzero_pow34(gain));
    for (u32 k = 0; k < band.count; ++k) {
        band.quantized[k] = with_sign_of(static_cast<i32>(band.pow34[k]) >= threshold ? 1 : 0, band.spectrum[k]);
    }
    PairBits bits = 0;
    for (u32 k = 0; k < band.count; k += 4) {
        bits += tables::signed_quad_lengths[tables::signed_quad_index(band.quantized + k)];
    }
    return bits;
}

inline void quantize_magnitudes(const BandLines &band, u32 gain) {
    for (u32 k = 0; k < band.count; ++k) band.quantized[k] = quantize(band.pow34[k], gain);
}

// Codebooks 3 and 4: magnitudes 0 ... 2.
inline PairBits count_quads(const BandLines &band, u32 gain) {
    quantize_magnitudes(band, gain);
    PairBits bits = 0;
    for (u32 k = 0; k < band.count; k += 4) bits += tables::quad_lengths[tables::quad_index(band.quantized + k)];
    return bits;
}

// Codebooks 5 and 6: values -4 ... 4.
inline PairBits count_signed_pairs(const BandLines &band, u32 gain) {
    for (u32 k = 0; k < band.count; ++k) {
        band.quantized[k] = with_sign_of(quantize(band.pow34[k], gain), band.spectrum[k]);
    }
    PairBits bits = 0;
    for (u32 k = 0; k < band.count; k += 2) {
        bits += tables::signed_pair_lengths[tables::signed_pair_index(band.quantized + k)];
    }
    return bits;
}

// Codebooks 7 and 8 (radix 8) or 9 and 10 (radix 13), with their lengths: magnitudes below the radix.
inline PairBits count_pairs(const BandLines &band, u32 gain, const tables::PackedLength *lengths, u32 radix) {
    quantize_magnitudes(band, gain);
    PairBits bits = 0;
    for (u32 k = 0; k < band.count; k += 2) {
        bits += lengths[tables::pair_index(band.quantized[k], band.quantized[k + 1], radix)];
    }
    return bits;
}

// Bits of codebook 11 for quantized magnitudes, signs and escape sequences included.
inline u32 escape_pair_bits(const i32 *q, u32 count) {
    u32 bits = 0;
    for (u32 k = 0; k < count; k += 2) bits += TAVIK_ZOLF_huff110[tables::escape_pair_index(q[k], q[k + 1])];
    for (u32 k = 0; k < count; ++k) {
        if (q[k] != 0) ++bits;  // its sign
        if (q[k] >= tables::escape_flag) bits += escape_sequence(static_cast<u32>(q[k])).length;
    }
    return bits;
}

// Codebook 11 where the products fit 32 bits.
inline u32 count_escape_pairs(const BandLines &band, u32 gain) {
    quantize_magnitudes(band, gain);
    return escape_pair_bits(band.quantized, band.count);
}

}  // namespace portable

// Codebook 11 under any gain: magnitudes up to 8191.
inline u32 count_large_escape_pairs(const BandLines &band, const GainRule &rule) {
    for (u32 k = 0; k < band.count; ++k) band.quantized[k] = static_cast<i32>(rule(band.pow34[k]));
    return portable::escape_pair_bits(band.quantized, band.count);
}

}  // namespace tavik

#if defined(__aarch64__)
#include "quant/band_counter_neon.h"
#if defined(TAVIK_CHECK_KERNELS)
#include "quant/band_counter_checked.h"
#endif
#endif
