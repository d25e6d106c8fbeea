// NEON twins of the band counters: eight lines at a time from 3/4 powers to codebook indices in registers.
#pragma once

#include <arm_neon.h>

#include "quant/band_counter.h"

namespace tavik::neon {

inline int32x4_t quantize(uint32x4_t pow34, uint32x4_t gain) {
    return vreinterpretq_s32_u32(vshrq_n_u32(vmlaq_u32(vdupq_n_u32(q20_rounding), pow34, gain), 20));
}

inline int32x4_t with_sign_of(int32x4_t magnitude, int32x4_t x) {
    const int32x4_t sign = vshrq_n_s32(x, 31);
    return vsubq_s32(veorq_s32(magnitude, sign), sign);
}

// Stores the values quantize(pow34, spectrum) of each four lines and sums count(values).
template <typename Quantize, typename Count>
inline auto count_fours(const BandLines &band, Quantize quantize, Count count) {
    const u32 *v = band.pow34;
    const i32 *x = band.spectrum;
    i32 *out = band.quantized;
    const u32 *const end = v + band.count;
    decltype(count(int32x4_t())) bits = 0;
    do {
        const int32x4_t q = quantize(vld1q_u32(v), vld1q_s32(x));
        vst1q_s32(out, q);
        bits += count(q);
        v += 4, x += 4, out += 4;
    } while (v != end);
    return bits;
}

inline constexpr std::array<i32, 4> quad_digits = {27, 9, 3, 1};

// The length of a quad; `lengths` points to that of zeros.
inline PairBits quad_length(int32x4_t q, int32x4_t digits, const tables::PackedLength *lengths) {
    return lengths[vaddvq_s32(vmulq_s32(q, digits))];
}

// Those of two pairs; the digits are radix, 1, radix, 1.
template <typename Length>
inline auto pair_lengths(int32x4_t q, int32x4_t digits, const Length *lengths) {
    const int32x4_t scaled = vmulq_s32(q, digits);
    const int32x4_t indices = vpaddq_s32(scaled, scaled);
    return lengths[vgetq_lane_s32(indices, 0)] + lengths[vgetq_lane_s32(indices, 1)];
}

inline int32x4_t pair_digits(u32 radix) { return vreinterpretq_s32_u64(vdupq_n_u64(u64{1} << 32 | radix)); }

inline PairBits count_signed_quads(const BandLines &band, u32 gain) {
    const uint32x4_t threshold = vdupq_n_u32(smallest_nonzero_pow34(gain));
    const int32x4_t digits = vld1q_s32(quad_digits.data());
    const tables::PackedLength *const lengths = tables::signed_quad_lengths.data() + 40;
    // All ones where the value is not 0: (-1) ^ sign, taken from sign, is 1 or -1 with the sign of x.
    const auto quantize_to_one = [&](uint32x4_t pow34, int32x4_t x) {
        const int32x4_t nonzero = vreinterpretq_s32_u32(vcgeq_u32(pow34, threshold));
        const int32x4_t sign = vshrq_n_s32(x, 31);
        return vsubq_s32(sign, veorq_s32(nonzero, sign));
    };
    return count_fours(band, quantize_to_one, [&](int32x4_t q) { return quad_length(q, digits, lengths); });
}

inline PairBits count_quads(const BandLines &band, u32 gain) {
    const uint32x4_t gains = vdupq_n_u32(gain);
    const int32x4_t digits = vld1q_s32(quad_digits.data());
    const tables::PackedLength *const lengths = tables::quad_lengths.data();
    return count_fours(
        band, [=](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gains); },
        [&](int32x4_t q) { return quad_length(q, digits, lengths); });
}

inline PairBits count_signed_pairs(const BandLines &band, u32 gain) {
    const uint32x4_t gains = vdupq_n_u32(gain);
    const int32x4_t digits = pair_digits(9);
    const tables::PackedLength *const lengths = tables::signed_pair_lengths.data() + 40;
    return count_fours(
        band, [=](uint32x4_t pow34, int32x4_t x) { return with_sign_of(quantize(pow34, gains), x); },
        [&](int32x4_t q) { return pair_lengths(q, digits, lengths); });
}

inline PairBits count_pairs(const BandLines &band, u32 gain, const tables::PackedLength *lengths, u32 radix) {
    const uint32x4_t gains = vdupq_n_u32(gain);
    const int32x4_t digits = pair_digits(radix);
    return count_fours(
        band, [=](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gains); },
        [&](int32x4_t q) { return pair_lengths(q, digits, lengths); });
}

// What a magnitude below 2^15 takes beside its codeword, by its leading zeros in 16 bits: a sign bit, and from 16 on an
// escape sequence of 2 floor(log2 q) - 3 bits. 0, with 16 leading zeros, finds no entry and takes nothing; nor do the
// upper halves of the numbers of zeros, which find entry 0.
inline constexpr std::array<u8, 16> sign_and_escape_bits = {0, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 1, 1, 1, 1};

inline u32 count_escape_pairs(const BandLines &band, u32 gain) {
    const uint32x4_t gains = vdupq_n_u32(gain);
    const int32x4_t flag = vdupq_n_s32(tables::escape_flag);
    const int32x4_t digits = pair_digits(17);
    const uint8x16_t bits_by_zeros = vld1q_u8(sign_and_escape_bits.data());
    uint32x4_t more_bits = vdupq_n_u32(0);
    const u32 bits = count_fours(
        band, [=](uint32x4_t pow34, int32x4_t) { return quantize(pow34, gains); },
        [&](int32x4_t q) {
            // The upper halves are 0.
            const uint8x16_t zeros = vreinterpretq_u8_u16(vclzq_u16(vreinterpretq_u16_s32(q)));
            more_bits = vaddq_u32(more_bits, vreinterpretq_u32_u8(vqtbl1q_u8(bits_by_zeros, zeros)));
            return pair_lengths(vminq_s32(q, flag), digits, TAVIK_ZOLF_huff110);
        });
    return bits + vaddvq_u32(more_bits);
}

}  // namespace tavik::neon
