// MDCT of 2n samples through a complex FFT of n / 2 points: window, fold, rotate, transform, rotate. Folding and
// rotations take 2 N complex values at a time: N from k on upwards, and the N that mirror them, from n/2 - 1 - k on
// downwards, which are made of the same samples.
#pragma once

#include "common/encoder_context.h"
#include "filterbank/fft.h"

namespace tavik {

// A block's window: two halves of n values, Q23. Both are stored as they rise; the falling one is mirrored.
struct Window {
    const i32 *rise;
    const i32 *fall;
};

// Twiddle factors of an MDCT of 2n samples: pairs cos a, -sin a (Q27, multiples of 16), a = 2 pi (k + 1/8) / 2n.
inline const i32 *mdct_twiddles(u32 n) { return n == frame_length ? TAVIK_W2 : TAVIK_W4; }

// Sample times window value (Q23) times 2^7: x w / 2^16. x is a 16-bit value.
struct ApplyWindow {
    template <u32 N>
    I32<N> operator()(I32<N> x, I32<N> window_q23) const {
        return product<16>(x, window_q23);
    }
};

// x (c + j s) 2^-4, with the Q27 pairs c, s. |x| < 2^24.
template <u32 N>
inline Complex<N> rotate_in(Complex<N> x, Pairs<N> w) {
    return {product<31>(x.re, w.first) - product<31>(x.im, w.second),
            product<31>(x.im, w.first) + product<31>(x.re, w.second)};
}

// Pairs of words read from one place upwards and from another one downwards.
template <u32 N>
class TwoWays {
 public:
    TwoWays(const i32 *up, const i32 *down) : up_(up), down_(down) {}

    Pairs<N> up() {
        const auto pairs = load_pairs<N>(up_);
        up_ += 2 * N;
        return pairs;
    }
    Pairs<N> down() {
        down_ -= 2 * N;
        return load_pairs<N>(down_);
    }

 private:
    const i32 *up_;
    const i32 *down_;
};

// The 2n samples x, windowed by `apply`, to the n / 2 values z of the FFT. Each half is folded about its middle: what
// is read from there upwards ("up") meets what is read downwards ("down"), even and odd samples apart. The values from
// k on have their second summands from below, so that those are reversed; in the mirrored values the first ones are.
template <u32 N, typename Apply>
[[gnu::flatten, gnu::noinline]] inline void window_and_fold(const i32 *x, const Window &window, ComplexBlocks<N> z,
                                                            u32 n, Apply apply) {
    const u32 middle = n / 2;
    TwoWays<N> early(x + middle, x + middle);
    TwoWays<N> late(x + n + middle, x + n + middle);
    TwoWays<N> rise(window.rise + middle, window.rise + middle);
    TwoWays<N> fall(window.fall + middle, window.fall + middle);
    TwoWays<N> w(mdct_twiddles(n), mdct_twiddles(n) + n);
    ComplexBlocks<N> z_up = z;
    ComplexBlocks<N> z_down{z.words + n};
    do {
        const auto a = early.up();
        const auto b = early.down();
        const auto c = late.up();
        const auto d = late.down();
        const auto rise_a = rise.up();
        const auto rise_b = rise.down();
        const auto fall_a = fall.up();
        const auto fall_b = fall.down();
        const Complex<N> from_k{apply(reversed(d.second), fall_a.first) + apply(c.first, reversed(fall_b.second)),
                                apply(a.first, rise_a.first) - reversed(apply(b.second, rise_b.second))};
        const Complex<N> mirrored{reversed(apply(a.second, rise_a.second)) - apply(b.first, rise_b.first),
                                  apply(d.first, reversed(fall_a.second)) + apply(reversed(c.second), fall_b.first)};
        z_down.words -= 2 * N;
        z_up.store(0, rotate_in(from_k, w.up()));
        z_down.store(0, rotate_in(mirrored, w.down()));
        z_up.advance();
    } while (z_up.words < z_down.words);
}

// Coefficients that come of N outputs of the FFT, from k on: 2 k, 2 k + 2 ... and n - 1 - 2 k, n - 3 - 2 k ...
template <u32 N>
struct Coefficients {
    I32<N> upwards;
    I32<N> downwards;
};

// The real part of x (c + j s), negated, and the imaginary part. The pairs are even: x c / 2^32 = x (c / 2) / 2^31.
template <u32 N>
inline Coefficients<N> rotate_out(Complex<N> x, Pairs<N> w) {
    const I32<N> c = w.first >> 1;
    const I32<N> s = w.second >> 1;
    return {product<31>(x.im, s) - product<31>(x.re, c), product<31>(x.im, c) + product<31>(x.re, s)};
}

// The n / 2 outputs of the FFT to the n coefficients, in their place.
template <u32 N>
[[gnu::flatten, gnu::noinline]] inline void rotate_to_coefficients(i32 *spectrum, u32 n) {
    TwoWays<N> w(mdct_twiddles(n), mdct_twiddles(n) + n);
    i32 *up = spectrum;
    i32 *down = spectrum + n;
    do {
        down -= 2 * N;
        const auto first = rotate_out(ComplexBlocks<N>{up}.load(0), w.up());
        const auto last = rotate_out(ComplexBlocks<N>{down}.load(0), w.down());
        store_pairs(up, Pairs<N>{first.upwards, reversed(last.downwards)});
        store_pairs(down, Pairs<N>{last.upwards, reversed(first.downwards)});
        up += 2 * N;
    } while (up < down);
}

// The MDCT of 2n samples, 16-bit values, under this window: to n coefficients, as mdct() has them. scratch: n words.
// Nothing overlaps. n = 1024 or 128, at least 32 N.
template <u32 N>
inline void windowed_mdct(const i32 *x, const Window &window, i32 *spectrum, i32 *scratch, u32 n) {
    const ComplexBlocks<N> z{scratch};
    window_and_fold(x, window, z, n, ApplyWindow());
    fft(z, ComplexBlocks<N>{spectrum}, n / 2);
    rotate_to_coefficients<N>(spectrum, n);
}

// The same with the lanes of this machine, for a block of 2048 samples and for one of 256.
void long_mdct(const i32 *x, const Window &window, i32 *spectrum, i32 *scratch);
void short_mdct(const i32 *x, const Window &window, i32 *spectrum, i32 *scratch);

// buf[k] = 2^-9 sum over p < 2n of buf[p] cos(2 pi / 2n (p + n0)(k + 1/2)), n0 = (n + 1) / 2, k < n: the standard's
// analysis MDCT / 1024, the same gain for both sizes, n = 1024 and 128. In: 2n samples up to about 2^22. Out: n
// coefficients, within some 20 units of the exact sum; the upper half of buf is left as it was. scratch: n entries.
void mdct(std::span<i32> buf, std::span<i32> scratch);

}  // namespace tavik
