// Split-radix FFT with decimation in frequency, in 32-bit integers without scaling: the complex transform inside the
// MDCT. A step of size L splits x = re + j im into
//   the even outputs:        x[i] + x[i + L/2], a transform of size L/2
//   the outputs 4 m + 1:     (d - j e) e^(-j a),  d = x[i] - x[i + L/2], e = x[i + L/4] - x[i + 3 L/4], of size L/4
//   the outputs 4 m + 3:     (d + j e) e^(-j 3 a), a = 2 pi i / L, of size L/4
// Steps of 32 values and more take N neighbours i at once. The blocks of 16 values that are left are transformed N at a
// time, with a block in every lane.
#pragma once

#include <span>

#include "common/lanes.h"
#include "tables/fft_tables.h"

namespace tavik {

// X[k] = sum x[n] e^(-j 2 pi n k / L) in place, natural order, gain L; L = 512 or 64. Error against the exact sum: some
// 200 units (L = 512) or 25 (L = 64) for inputs up to 2^20. Headroom: |re + im| < 2^29 at every stage.
void fft(std::span<i32> re, std::span<i32> im);

template <u32 N>
struct Complex {
    I32<N> re;
    I32<N> im;
};

// Complex values in blocks of N: N real parts, then N imaginary parts.
template <u32 N>
struct ComplexBlocks {
    i32 *words;

    Complex<N> load(u32 block) const {
        std::array<I32<N>, 2> x{};
        load_row(words + 2 * N * block, x);
        return {x[0], x[1]};
    }
    void store(u32 block, Complex<N> x) const { store_two(words + 2 * N * block, x.re, x.im); }
    ComplexBlocks from(u32 block) const { return {words + 2 * N * block}; }
    void advance() { words += 2 * N; }
};

// a + b and a - b
template <u32 N>
inline void butterfly(Complex<N> &a, Complex<N> &b) {
    const Complex<N> difference{a.re - b.re, a.im - b.im};
    a = {a.re + b.re, a.im + b.im};
    b = difference;
}

// d - j e and d + j e
template <u32 N>
inline void turn(Complex<N> &d, Complex<N> &e) {
    const Complex<N> sum{d.re - e.im, d.im + e.re};
    d = {d.re + e.im, d.im - e.re};
    e = sum;
}

// c, p and q of N twiddle factors.
template <u32 N>
using Twiddles = std::array<I32<N>, 3>;

// x e^(-j a) in three multiplications. A Q30 product of x is a Q31 product of 2 x.
template <u32 N>
inline Complex<N> rotate(Complex<N> x, const Twiddles<N> &w) {
    const auto [c, p, q] = w;
    const I32<N> re = x.re << 1;
    const I32<N> im = x.im << 1;
    const I32<N> common = product<31>(re + im, c);
    return {product<31>(im, q) + common, product<31>(re, p) + common};
}

template <u32 N>
inline Complex<N> rotate(Complex<N> x, tables::Twiddle w) {
    return rotate(x, {I32<N>::all(w.c), I32<N>::all(w.p), I32<N>::all(w.q)});
}

// (re + im) cos(pi / 4) and (im - re) cos(pi / 4): both parts of a rotation by an eighth turn.
template <u32 N>
inline I32<N> scaled_sum(Complex<N> x, i32 cosine_q31 = tables::cos_eighth_turn_q31) {
    return product<31>(x.re + x.im, I32<N>::all(cosine_q31));
}
template <u32 N>
inline I32<N> scaled_difference(Complex<N> x) {
    return product<31>(x.im - x.re, I32<N>::all(tables::cos_eighth_turn_q31));
}
template <u32 N>
inline Complex<N> rotate_eighth_turn(Complex<N> x) {
    return {scaled_sum(x), scaled_difference(x)};
}
template <u32 N>
inline Complex<N> rotate_three_eighth_turns(Complex<N> x) {
    return {scaled_difference(x), scaled_sum(x, -tables::cos_eighth_turn_q31)};
}

// Values of the four quarters at the same i; split() is a step up to the rotation of the last two.
template <u32 N>
inline void split(Complex<N> &x0, Complex<N> &x1, Complex<N> &x2, Complex<N> &x3) {
    butterfly(x0, x2);
    butterfly(x1, x3);
    turn(x2, x3);
}

// A step of size L >= 32 with its twiddle factors. At i = L/8, where a is an eighth turn and q = 0, they give only one
// part of each value; the other one is computed again.
template <u32 N>
[[gnu::flatten, gnu::noinline]] inline void fft_step(ComplexBlocks<N> z, u32 size, const i32 *w) {
    const u32 quarter = size / 4 / N;
    ComplexBlocks<N> z0 = z;
    ComplexBlocks<N> z1 = z.from(quarter);
    ComplexBlocks<N> z2 = z.from(2 * quarter);
    ComplexBlocks<N> z3 = z.from(3 * quarter);
    u32 blocks_left = quarter;
    do {
        Complex<N> x0 = z0.load(0);
        Complex<N> x1 = z1.load(0);
        Complex<N> x2 = z2.load(0);
        Complex<N> x3 = z3.load(0);
        split(x0, x1, x2, x3);
        Twiddles<N> w1{};
        load_row(w, w1);
        w += 3 * N;
        Twiddles<N> w3{};
        load_row(w, w3);
        w += 3 * N;
        z0.store(0, x0);
        z1.store(0, x1);
        z2.store(0, rotate(x2, w1));
        z3.store(0, rotate(x3, w3));
        z0.advance(), z1.advance(), z2.advance(), z3.advance();
        if (--blocks_left == (quarter - 1) / 2) [[unlikely]] {
            const I32<N> is_eighth_turn = w1[2] == I32<N>{};
            const ComplexBlocks<N> middle2 = z.from(5 * quarter / 2);
            const ComplexBlocks<N> middle3 = z.from(7 * quarter / 2);
            const Complex<N> y2 = middle2.load(0);
            const Complex<N> y3 = middle3.load(0);
            middle2.store(0, {y2.re, select(is_eighth_turn, scaled_difference(x2), y2.im)});
            middle3.store(0, {select(is_eighth_turn, scaled_difference(x3), y3.re), y3.im});
        }
    } while (blocks_left != 0);
}

// Writes the twiddle factors of a step of this size: every second one of w, those of the step of twice the size. `to`
// may be w. Returns it.
template <u32 N>
inline const i32 *halve_twiddles(const i32 *w, u32 size, i32 *to) {
    i32 *const end = to + size / 4 * tables::twiddle_words;
    for (i32 *half = to; half != end; half += N * tables::twiddle_words) {
        Twiddles<N> even1{};
        Twiddles<N> even3{};
        Twiddles<N> odd1{};
        Twiddles<N> odd3{};
        load_row(w, even1);
        load_row(w + 3 * N, even3);
        load_row(w + 6 * N, odd1);
        load_row(w + 9 * N, odd3);
        w += 12 * N;
        unrolled<3>([&](auto i) {
            every_second(even1[i], odd1[i]).store(half + i * N);
            every_second(even3[i], odd3[i]).store(half + (3 + i) * N);
        });
    }
    return to;
}

// Calls f(p) for the start p of every transform of `size` values that a split-radix transform of n values consists of:
// one half and two quarters of a transform are transforms again, so that it is the first of n, of n / 2, the first
// and the last of four of n / 4 ... As values of equal sizes they recur at distances of 2, 8, 32 ... sizes.
template <typename F>
inline void for_each_transform(u32 n, u32 size, F f) {
    u32 distance = 2 * size;
    for (u32 begin = 0; begin < n; begin = 2 * distance - size, distance *= 4) {
        for (u32 p = begin; p < n; p += distance) f(p);
    }
}

// Whether the index-th run of equally many values is one of these transforms; of two quarters otherwise.
constexpr bool is_transform(u32 index) { return std::countr_one(index) % 2 == 0; }

template <u32 N>
using SixteenValues = std::array<Complex<N>, 16>;

template <u32 N>
inline void transform_4(Complex<N> *x) {
    split(x[0], x[1], x[2], x[3]);
    butterfly(x[0], x[1]);
}

template <u32 N>
inline void transform_8(Complex<N> *x) {
    split(x[0], x[2], x[4], x[6]);
    split(x[1], x[3], x[5], x[7]);
    x[5] = rotate_eighth_turn(x[5]);
    x[7] = rotate_three_eighth_turns(x[7]);
    butterfly(x[4], x[5]);
    butterfly(x[6], x[7]);
    transform_4(x);
}

template <u32 N>
inline void step_16(Complex<N> *x) {
    constexpr tables::Twiddle w1 = tables::twiddle(32);
    constexpr tables::Twiddle w3 = tables::twiddle(96);
    constexpr tables::Twiddle w9 = tables::twiddle(288);
    unrolled<4>([=](auto i) { split(x[i], x[i + 4], x[i + 8], x[i + 12]); });
    x[9] = rotate(x[9], w1);
    x[13] = rotate(x[13], w3);
    x[10] = rotate_eighth_turn(x[10]);
    x[14] = rotate_three_eighth_turns(x[14]);
    x[11] = rotate(x[11], w3);
    x[15] = rotate(x[15], w9);
}

// Lane l of group b, of `groups` groups, holds block b + groups bitreverse(l).
template <u32 N>
constexpr u32 block_in_lane(u32 b, u32 groups, u32 lane) {
    return b + groups * (u32{tables::reversed_3_bits[lane]} * N / 8);
}

template <u32 N>
inline void load_group(ComplexBlocks<N> z, u32 b, u32 groups, SixteenValues<N> &x) {
    std::array<ComplexBlocks<N>, N> block{};
    unrolled<N>([&](auto lane) { block[lane] = z.from(block_in_lane<N>(b, groups, lane) * 16 / N); });
    for (u32 j = 0; j < 16; j += N) {
        std::array<I32<N>, N> re{};
        std::array<I32<N>, N> im{};
        unrolled<N>([&](auto lane) {
            const Complex<N> values = block[lane].load(0);
            block[lane].advance();
            re[lane] = values.re;
            im[lane] = values.im;
        });
        transpose(re);
        transpose(im);
        unrolled<N>([&](auto i) { x[j + i] = {re[i], im[i]}; });
    }
}

// Value j to block stride bitreverse(j).
template <u32 N>
inline void store_in_order(const std::array<Complex<N>, 8> &y, ComplexBlocks<N> to, u32 stride) {
    ComplexBlocks<N> place = to;
    unrolled<8>([&](auto i) {
        place.store(0, y[tables::reversed_3_bits[i]]);
        if constexpr (i < 7) place = place.from(stride);  // no place after the last
    });
}

// What is left of group b in blocks of 16 values: transforms of 16, or two of 8. With its lanes in that order, value j
// belongs to N neighbouring outputs: bitreverse(16 (b + groups t) + j) = n/16 bitreverse(j) + N bitreverse(b) +
// bitreverse(t).
template <u32 N>
[[gnu::flatten, gnu::noinline]] inline void transform_group(ComplexBlocks<N> z, ComplexBlocks<N> out, u32 b, u32 groups,
                                                            bool are_transforms_of_16) {
    SixteenValues<N> x;
    load_group(z, b, groups, x);
    if (are_transforms_of_16) step_16(x.data());
    const auto to = out.from(tables::reversed_5_bits[b] * groups / 32);
#pragma GCC unroll 1  // for its size
    for (u32 half = 0; half < 2; ++half) {
        std::array<Complex<N>, 8> y{};
        unrolled<8>([&](auto j) { y[j] = x[8 * half + j]; });
        if (half == 1 && are_transforms_of_16) {
            transform_4(y.data());
            transform_4(&y[4]);
            store_in_order(y, to.from(groups), 2 * groups);
        } else {
            transform_8(y.data());
            store_in_order(y, to.from(half * groups), 2 * groups);
        }
    }
}

// The same values as fft() gives, for n = 512 or 64, from the blocks z to the blocks `out`. z is work space then; they
// must not overlap. n >= 16 N.
template <u32 N>
[[gnu::noinline]] inline void fft(ComplexBlocks<N> z, ComplexBlocks<N> out, u32 n) {
    const i32 *w = tables::fft_twiddles<N>.data() + tables::twiddles_begin(n);
    for (u32 size = n; size >= tables::min_fft_step; size /= 2) {
        if (size <= tables::max_short_step) {
            w = tables::fft_twiddles<N>.data() + tables::twiddles_begin(size);
        } else if (size != n) {
            w = halve_twiddles<N>(w, size, out.words);
        }
        for_each_transform(n, size, [&](u32 p) { fft_step(z.from(p / N), size, w); });
    }
    const u32 groups = n / 16 / N;
    for (u32 b = 0; b < groups; ++b) transform_group(z, out, b, groups, is_transform(b));
    if constexpr (N > 1) {
        // The number of the last group is all ones. Only there the lane matters: it has blocks of both kinds.
        const u32 last = groups - 1;
        const auto mask =
            lane_by_lane<i32, N>([](u32 lane) { return is_transform(block_in_lane<N>(0, 1, lane)) ? -1 : 0; });
        transform_group(z, z, last, groups, !is_transform(last));
        for (u32 j = 0; j < 16; ++j) {
            const u32 block = j * groups + last;
            const Complex<N> x = out.load(block);
            const Complex<N> other = z.load(block);
            out.store(block, {select(mask, x.re, other.re), select(mask, x.im, other.im)});
        }
    }
}

}  // namespace tavik
