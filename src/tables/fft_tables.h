// Twiddle factors and bit reversals of the FFT, computed from their formulas.
#pragma once

#include <array>
#include <bit>

#include "tables/trigonometry.h"

namespace tavik::tables {

// Near cos(pi / 4) in Q31, which is 0x5A82799A to nearest. Every stream depends on this exact value, so it stays.
inline constexpr i32 cos_eighth_turn_q31 = 0x5A827B70;

// The twiddle factor e^(-j a), in Q30: c = cos a, p = -(cos a + sin a), q = sin a - cos a.
struct Twiddle {
    i32 c, p, q;
};

// A step of the FFT of size L <= 512 multiplies by the twiddle factors w1 of a = 2 pi i / L and w3 of 3 a, i < L/4:
// both angles are below 384/512 of a turn.
inline constexpr u32 max_fft_step = 512;
inline constexpr u32 eighth_turn = max_fft_step / 8;

// The twiddle factor of k / 512 of a turn. At one and three eighths of a turn, where a step has i = L/8, the cosine is
// the above constant: re of the one product and im of the other must be rounded only once, as they are with it.
constexpr Twiddle twiddle(u32 k) {
    const i128 cosine = cos_pi(2 * i64{k}, max_fft_step);
    const i128 sine = sin_pi(2 * i64{k}, max_fft_step);
    Twiddle twiddle{static_cast<i32>(round_q60(cosine, 30)), static_cast<i32>(round_q60(-(cosine + sine), 30)),
                    static_cast<i32>(round_q60(sine - cosine, 30))};
    if (k == eighth_turn) twiddle.c = cos_eighth_turn_q31 / 2;
    if (k == 3 * eighth_turn) twiddle.c = -cos_eighth_turn_q31 / 2;
    return twiddle;
}

// The twiddle factors of the steps of 32, 64 and 512, ready for N lanes: for each N neighbours i the N values c, p and
// q of w1, then those of w3. A step of 256 or 128 uses every second one of the step of twice its size.
inline constexpr u32 min_fft_step = 32;
inline constexpr u32 max_short_step = 64;
inline constexpr u32 twiddle_words = 6;

// Where the twiddle factors of a step begin.
constexpr u32 twiddles_begin(u32 step) {
    constexpr u32 short_steps = (2 * max_short_step - min_fft_step) / 4;
    return (step == max_fft_step ? short_steps : (step - min_fft_step) / 4) * twiddle_words;
}

template <u32 N>
consteval auto make_fft_twiddles() {
    std::array<i32, twiddles_begin(max_fft_step) + max_fft_step / 4 * twiddle_words> table{};
    for (const u32 step : {min_fft_step, max_short_step, max_fft_step}) {
        for (u32 i = 0; i < step / 4; ++i) {
            u32 entry = twiddles_begin(step) + i / N * N * twiddle_words + i % N;
            for (const u32 multiple : {1u, 3u}) {
                const Twiddle w = twiddle(multiple * i * (max_fft_step / step));
                for (const i32 value : {w.c, w.p, w.q}) {
                    table[entry] = value;
                    entry += N;
                }
            }
        }
    }
    return table;
}

template <u32 N>
inline constexpr std::array fft_twiddles = make_fft_twiddles<N>();

// w1 and w3 of the step of 512 for i < 128, from the table for N lanes.
struct TwiddlePair {
    Twiddle w1, w3;
};
template <u32 N>
constexpr TwiddlePair twiddle_pair(u32 i) {
    const i32 *w = fft_twiddles<N>.data() + twiddles_begin(max_fft_step) + i / N * N * twiddle_words + i % N;
    return {{w[0], w[N], w[2 * N]}, {w[3 * N], w[4 * N], w[5 * N]}};
}

// The indices below N, a power of two, with their bits in reverse order.
template <std::size_t N>
consteval std::array<u8, N> bit_reversal() {
    constexpr u32 bits = std::countr_zero(N);
    std::array<u8, N> table{};
    for (u32 i = 0; i < N; ++i) {
        for (u32 bit = 0; bit < bits; ++bit) {
            if ((i >> bit & 1) != 0) table[i] = static_cast<u8>(table[i] | 1u << (bits - 1 - bit));
        }
    }
    return table;
}

inline constexpr std::array<u8, 32> reversed_5_bits = bit_reversal<32>();
inline constexpr std::array<u8, 16> reversed_4_bits = bit_reversal<16>();
inline constexpr std::array<u8, 8> reversed_3_bits = bit_reversal<8>();

}  // namespace tavik::tables
