// NEON twins of the band counters: four lines at a time from 3/4 powers to codebook index in registers.
#pragma once

#include <arm_neon.h>

#include "quant/band_counter.h"

namespace tavik {
namespace neon {

inline int32x4_t quantize(uint32x4_t pow34, u32 gain) {
    return vreinterpretq_s32_u32(vshrq_n_u32(vmlaq_n_u32(vdupq_n_u32(q20_rounding), pow34, gain), 20));
}

inline int32x4_t with_sign_of(int32x4_t magnitude, int32x4_t x) {
    const int32x4_t sign = vshrq_n_s32(x, 31);
    return vsubq_s32(veorq_s32(magnitude, sign), sign);
}

// Sums count(q) over the values q = quantize(pow34, spectrum) of each four lines, and stores the values. Two fours a
// turn, so that loads and stores are paired.
template <typename Quantize, typename Count>
inline u32 count_fours(const BandLines &band, Quantize quantize, Count count) {
    const u32 *v = band.pow34;
    const i32 *x = band.spectrum;
    i32 *out = band.quantized;
    const u32 *const end = v + band.count;
    u32 bits = 0;
    for (; end - v >= 8; v += 8, x += 8, out += 8) {
        const int32x4_t first = quantize(vld1q_u32(v), vld1q_s32(x));
        const int32x4_t second = quantize(vld1q_u32(v + 4), vld1q_s32(x + 4));
        vst1q_s32(out, first);
        vst1q_s32(out + 4, second);
        bits += count(first) + count(second);
    }
    if (v != end) {
        const int32x4_t last = quantize(vld1q_u32(v), vld1q_s32(x));
        vst1q_s32(out, last);
        bits += count(last);
    }
    return bits;
}

inline constexpr std::array<i32, 4> quad_digits = {27, 9, 3, 1};

// Index of a tuple of four, from the table's entry of all zeros.
inline i32 quad_index(int32x4_t q, int32x4_t digits) { return vaddvq_s32(vmulq_s32(q, digits)); }

// Indices of the two pairs among four lines, the first in the low half; digits: radix, 1, radix, 1.
inline i64 pair_indices(int32x4_t q, int32x4_t digits) {
    const int32x4_t scaled = vmulq_s32(q, digits);
    return vgetq_lane_s64(vreinterpretq_s64_s32(vpaddq_s32(scaled, scaled)), 0);
}

inline int32x4_t pair_digits(u32 radix) {
    return vsetq_lane_s32(static_cast<i32>(radix), vsetq_lane_s32(static_cast<i32>(radix), vdupq_n_s32(1), 0), 2);
}

// Bits of both pairs among four lines.
template <typename Length>
inline u32 pair_lengths(const Length *lengths, i64 indices) {
    return u32{lengths[static_cast<i32>(indices)]} + lengths[indices >> 32];
}

inline PairBits count_signed_quads(const BandLines &band, u32 gain) {
    const uint32x4_t threshold = vdupq_n_u32(smallest_nonzero_pow34(gain));
    const int32x4_t digits = vld1q_s32(quad_digits.data());
    const u32 *const lengths = tables::signed_quad_lengths.data() + 40;
    // All ones where the value is not 0: (-1) ^ sign, taken from sign, is 1 or -1 with the sign of x.
    return count_fours(
        band,
        [&](uint32x4_t pow34, int32x4_t x) {
            const int32x4_t nonzero = vreinterpretq_s32_u32(vcgeq_u32(pow34, threshold));
            const int32x4_t sign = vshrq_n_s32(x, 31);
            return vsubq_s32(sign, veorq_s32(nonzero, sign));
        },
        [&](int32x4_t q) { return lengths[quad_index(q, digits)]; });
}

inline PairBits count_quads(const BandLines &band, u32 gain) {
    const int32x4_t digits = vld1q_s32(quad_digits.data());
    const u32 *const lengths = tables::quad_lengths.data();
    return count_fours(
        band, [&](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gain); },
        [&](int32x4_t q) { return lengths[quad_index(q, digits)]; });
}

inline PairBits count_signed_pairs(const BandLines &band, u32 gain) {
    const int32x4_t digits = pair_digits(9);
    const u32 *const lengths = tables::signed_pair_lengths.data() + 40;
    return count_fours(
        band, [&](uint32x4_t pow34, int32x4_t x) { return with_sign_of(quantize(pow34, gain), x); },
        [&](int32x4_t q) { return pair_lengths(lengths, pair_indices(q, digits)); });
}

inline PairBits count_pairs(const BandLines &band, u32 gain, const u32 *lengths, u32 radix) {
    const int32x4_t digits = pair_digits(radix);
    return count_fours(
        band, [&](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gain); },
        [&](int32x4_t q) { return pair_lengths(lengths, pair_indices(q, digits)); });
}

// Bits of the escape sequences of magnitudes of 16 and more: 2 floor(log2 q) - 3; 0 for the others.
inline uint32x4_t escape_bits(int32x4_t q) {
    const uint32x4_t escapes = vcgeq_s32(q, vdupq_n_s32(tables::escape_flag));
    const int32x4_t length = vsubq_s32(vdupq_n_s32(2 * 31 - 3), vshlq_n_s32(vclzq_s32(q), 1));
    return vandq_u32(escapes, vreinterpretq_u32_s32(length));
}

inline u32 count_escape_pairs(const BandLines &band, u32 gain) {
    const int32x4_t digits = pair_digits(17);
    const int32x4_t flag = vdupq_n_s32(tables::escape_flag);
    const u8 *const lengths = tables::escape_pair_lengths.data();
    uint32x4_t escapes = vdupq_n_u32(0);
    const u32 bits = count_fours(
        band, [&](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gain); },
        [&](int32x4_t q) {
            escapes = vaddq_u32(escapes, escape_bits(q));
            return pair_lengths(lengths, pair_indices(vminq_s32(q, flag), digits));
        });
    return bits + vaddvq_u32(escapes);
}

}  // namespace neon
}  // namespace tavik
