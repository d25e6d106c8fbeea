// NEON twins of the band counters: eight lines at a time from 3/4 powers to codebook indices in registers.
#pragma once

#include <arm_neon.h>

#include "quant/band_counter.h"

namespace tavik::neon {

inline int32x4_t quantize(uint32x4_t pow34, u32 gain) {
    return vreinterpretq_s32_u32(vshrq_n_u32(vmlaq_n_u32(vdupq_n_u32(q20_rounding), pow34, gain), 20));
}

inline int32x4_t with_sign_of(int32x4_t magnitude, int32x4_t x) {
    const int32x4_t sign = vshrq_n_s32(x, 31);
    return vsubq_s32(veorq_s32(magnitude, sign), sign);
}

// Stores the values q = quantize(pow34, spectrum) of each four lines and sums count(first, second) over each two fours;
// a four without a second has zeros there.
template <typename Quantize, typename Count>
inline u32 count_eights(const BandLines &band, Quantize quantize, Count count) {
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
        bits += count(first, second);
    }
    if (v != end) {
        const int32x4_t last = quantize(vld1q_u32(v), vld1q_s32(x));
        vst1q_s32(out, last);
        bits += count(last, vdupq_n_s32(0));
    }
    return bits;
}

// What the zeros behind a single last four have counted, at this length of a tuple.
inline u32 padding_bits(const BandLines &band, u32 tuple_size, u32 length) {
    return band.count % 8 != 0 ? 4 / tuple_size * length : 0;
}

inline constexpr std::array<i32, 4> quad_digits = {27, 9, 3, 1};

// Bits of both quads; `lengths` points to the entry of all zeros.
inline u32 quad_lengths(int32x4_t first, int32x4_t second, int32x4_t digits, const u32 *lengths) {
    return lengths[vaddvq_s32(vmulq_s32(first, digits))] + lengths[vaddvq_s32(vmulq_s32(second, digits))];
}

inline int16x8_t narrow(int32x4_t first, int32x4_t second) {
    return vuzp1q_s16(vreinterpretq_s16_s32(first), vreinterpretq_s16_s32(second));
}

// radix, 1, radix, 1 ...
inline int16x8_t pair_digits(u32 radix) { return vreinterpretq_s16_u32(vdupq_n_u32(1u << 16 | radix)); }

// Bits of the four pairs of eight values; `lengths` points to the entry of zeros.
template <typename Length>
inline u32 pair_lengths(int16x8_t q, int16x8_t digits, const Length *lengths) {
    const int16x8_t scaled = vmulq_s16(q, digits);
    const int16x8_t indices = vpaddq_s16(scaled, scaled);
    return u32{lengths[vgetq_lane_s16(indices, 0)]} + lengths[vgetq_lane_s16(indices, 1)] +
           lengths[vgetq_lane_s16(indices, 2)] + lengths[vgetq_lane_s16(indices, 3)];
}

inline PairBits count_signed_quads(const BandLines &band, u32 gain) {
    const uint32x4_t threshold = vdupq_n_u32(smallest_nonzero_pow34(gain));
    const int32x4_t digits = vld1q_s32(quad_digits.data());
    const u32 *const lengths = tables::signed_quad_lengths.data() + 40;
    // All ones where the value is not 0: (-1) ^ sign, taken from sign, is 1 or -1 with the sign of x.
    const auto quantize_to_one = [&](uint32x4_t pow34, int32x4_t x) {
        const int32x4_t nonzero = vreinterpretq_s32_u32(vcgeq_u32(pow34, threshold));
        const int32x4_t sign = vshrq_n_s32(x, 31);
        return vsubq_s32(sign, veorq_s32(nonzero, sign));
    };
    const auto count = [&](int32x4_t first, int32x4_t second) { return quad_lengths(first, second, digits, lengths); };
    return count_eights(band, quantize_to_one, count) - padding_bits(band, 4, *lengths);
}

inline PairBits count_quads(const BandLines &band, u32 gain) {
    const int32x4_t digits = vld1q_s32(quad_digits.data());
    const u32 *const lengths = tables::quad_lengths.data();
    const auto quantize_all = [&](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gain); };
    const auto count = [&](int32x4_t first, int32x4_t second) { return quad_lengths(first, second, digits, lengths); };
    return count_eights(band, quantize_all, count) - padding_bits(band, 4, *lengths);
}

inline PairBits count_signed_pairs(const BandLines &band, u32 gain) {
    const int16x8_t digits = pair_digits(9);
    const u32 *const lengths = tables::signed_pair_lengths.data() + 40;
    const auto quantize_all = [&](uint32x4_t pow34, int32x4_t x) { return with_sign_of(quantize(pow34, gain), x); };
    const auto count = [&](int32x4_t first, int32x4_t second) {
        return pair_lengths(narrow(first, second), digits, lengths);
    };
    return count_eights(band, quantize_all, count) - padding_bits(band, 2, *lengths);
}

inline PairBits count_pairs(const BandLines &band, u32 gain, const u32 *lengths, u32 radix) {
    const int16x8_t digits = pair_digits(radix);
    const auto quantize_all = [&](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gain); };
    const auto count = [&](int32x4_t first, int32x4_t second) {
        return pair_lengths(narrow(first, second), digits, lengths);
    };
    return count_eights(band, quantize_all, count) - padding_bits(band, 2, *lengths);
}

// Bits of the escape sequences of magnitudes of 16 and more: 2 floor(log2 q) - 3; 0 for the others.
inline uint16x8_t escape_bits(int16x8_t q) {
    const uint16x8_t escapes = vcgeq_s16(q, vdupq_n_s16(tables::escape_flag));
    const int16x8_t length = vsubq_s16(vdupq_n_s16(2 * 15 - 3), vshlq_n_s16(vclzq_s16(q), 1));
    return vandq_u16(escapes, vreinterpretq_u16_s16(length));
}

inline u32 count_escape_pairs(const BandLines &band, u32 gain) {
    const int16x8_t digits = pair_digits(17);
    const int16x8_t flag = vdupq_n_s16(tables::escape_flag);
    const u8 *const lengths = tables::escape_pair_lengths.data();
    uint16x8_t escapes = vdupq_n_u16(0);  // at most 21 bits for each of 32 lines
    const auto quantize_all = [&](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gain); };
    const auto count = [&](int32x4_t first, int32x4_t second) {
        const int16x8_t q = narrow(first, second);
        escapes = vaddq_u16(escapes, escape_bits(q));
        return pair_lengths(vminq_s16(q, flag), digits, lengths);
    };
    const u32 bits = count_eights(band, quantize_all, count) - padding_bits(band, 2, *lengths);
    return bits + vaddlvq_u16(escapes);
}

}  // namespace tavik::neon
