// MDCT of 2n samples through a complex FFT of n / 2 points.
#include "filterbank/mdct.h"

#include "filterbank/fft.h"
#include "tavik.h"

namespace tavik {
namespace {

// Pairs cos a, -sin a (Q27), a = 2 pi (k + 1/8) / 2n.
template <std::size_t N>
const i32 *rotations() {
    if constexpr (N == 1024) {
        return TAVIK_W2;
    } else {
        return TAVIK_W4;
    }
}

// The block of 2n samples folded to n / 2 complex values (r + j i), each times 2 e^(-j a) 2^27 / 2^32 = e^(-j a) / 16:
// four bits of headroom for the FFT.
template <std::size_t N>
void fold_and_rotate(std::span<const i32, 2 * N> buf, std::span<i32, N / 2> re, std::span<i32, N / 2> im) {
    constexpr std::size_t half = N;
    constexpr std::size_t quarter = N / 2;
    const i32 *pair = rotations<N>();
    const auto store = [&](std::size_t k, i32 r, i32 i) {
        const i32 c = pair[2 * k];
        const i32 s = pair[2 * k + 1];
        re[k] = wrap_sub(mulhi(r << 1, c), mulhi(i << 1, s));
        im[k] = wrap_add(mulhi(i << 1, c), mulhi(r << 1, s));
    };
    for (std::size_t k = 0; k < quarter / 2; ++k) {
        store(k, wrap_add(buf[half + quarter - 1 - 2 * k], buf[half + quarter + 2 * k]),
              wrap_sub(buf[quarter + 2 * k], buf[quarter - 1 - 2 * k]));
    }
    for (std::size_t k = 0; k < quarter / 2; ++k) {
        store(quarter / 2 + k, wrap_sub(buf[half - 1 - 2 * k], buf[2 * k]),
              wrap_add(buf[half + 2 * k], buf[2 * half - 1 - 2 * k]));
    }
}

// FFT output times e^(-j a) / 32: the real part gives, negated, the even coefficients, the imaginary part, backwards,
// the odd ones.
template <std::size_t N>
void rotate_out(std::span<const i32, N / 2> re, std::span<const i32, N / 2> im, std::span<i32, N> out) {
    const i32 *pair = rotations<N>();
    for (std::size_t k = 0; k < N / 2; ++k) {
        const i32 c = pair[2 * k];
        const i32 s = pair[2 * k + 1];
        out[2 * k] = wrap_sub(mulhi(im[k], s), mulhi(re[k], c));
        out[N - 1 - 2 * k] = wrap_add(mulhi(im[k], c), mulhi(re[k], s));
    }
}

}  // namespace

template <std::size_t N>
void mdct(std::span<i32, 2 * N> buf, std::span<i32, N> scratch) {
    const auto re = scratch.template first<N / 2>();
    const auto im = scratch.template last<N / 2>();
    fold_and_rotate<N>(buf, re, im);
    fft<N / 2>(re, im);
    rotate_out<N>(re, im, buf.template first<N>());
}

template void mdct<1024>(std::span<i32, 2048>, std::span<i32, 1024>);
template void mdct<128>(std::span<i32, 256>, std::span<i32, 128>);

}  // namespace tavik
