// Split-radix decimation-in-frequency FFT on 32-bit integers, without scaling in any stage, then a bit-reversal
// permutation. A step of size L splits x = re + j im into
//   the even outputs:        x[i] + x[i + L/2], a transform of size L/2
//   the outputs 4 m + 1:     (d - j e) e^(-j a),  d = x[i] - x[i + L/2], e = x[i + L/4] - x[i + 3 L/4], of size L/4
//   the outputs 4 m + 3:     (d + j e) e^(-j 3 a), a = 2 pi i / L, of size L/4
#include "filterbank/fft.h"

#include <algorithm>

#include "tables/fft_tables.h"

namespace tavik {
namespace {

using tables::cos_eighth_turn_q31;

struct Complex {
    i32 re;
    i32 im;
};

void butterfly(i32 &a, i32 &b) {
    const i32 sum = wrap_add(a, b);
    b = wrap_sub(a, b);
    a = sum;
}

// Radix-2 step over L values, then d -+ j e over its differences.
template <u32 L>
void split(i32 *re, i32 *im) {
    for (u32 i = 0; i < L / 2; ++i) {
        butterfly(re[i], re[i + L / 2]);
        butterfly(im[i], im[i + L / 2]);
    }
    for (u32 i = L / 2; i < 3 * L / 4; ++i) {
        const Complex d{re[i], im[i]};
        const Complex e{re[i + L / 4], im[i + L / 4]};
        re[i] = wrap_add(d.re, e.im);
        im[i] = wrap_sub(d.im, e.re);
        re[i + L / 4] = wrap_sub(d.re, e.im);
        im[i + L / 4] = wrap_add(d.im, e.re);
    }
}

// (re + j im) e^(-j a) in three multiplications: c = cos a, p = -(cos a + sin a), q = sin a - cos a, all Q30.
void rotate(i32 &re, i32 &im, i32 c, i32 p, i32 q) {
    const i32 common = mulhi(wrap_add(re, im) << 2, c);
    const i32 rotated = wrap_add(mulhi(im << 2, q), common);
    im = wrap_add(mulhi(re << 2, p), common);
    re = rotated;
}

// Rotation of element L/8 of the two odd quarters: by a quarter of pi, and by three.
void rotate_eighth_turns(i32 &re1, i32 &im1, i32 &re3, i32 &im3) {
    const i32 sum1 = wrap_add(re1, im1) << 1;
    const i32 difference1 = wrap_sub(im1, re1) << 1;
    re1 = mulhi(sum1, cos_eighth_turn_q31);
    im1 = mulhi(difference1, cos_eighth_turn_q31);
    const i32 sum3 = wrap_add(re3, im3) << 1;
    const i32 difference3 = wrap_sub(im3, re3) << 1;
    re3 = mulhi(difference3, cos_eighth_turn_q31);
    im3 = mulhi(sum3, -cos_eighth_turn_q31);
}

// Rotates x[L/2 + k] by a = 2 pi k / L and x[3 L/4 + k] by 3 a for the table entries `first` ... `last` - 1.
template <u32 L>
void rotate_quarters(i32 *re, i32 *im, u32 k, u32 first, u32 last) {
    constexpr u32 run = L / 4 - 2;
    const i32 *c1 = tables::fft_rotations<L>.data();
    for (u32 i = first; i < last; ++i, ++k) {
        const i32 *entry = c1 + i;
        rotate(re[L / 2 + k], im[L / 2 + k], entry[0], entry[run], entry[2 * run]);
        rotate(re[3 * L / 4 + k], im[3 * L / 4 + k], entry[3 * run], entry[4 * run], entry[5 * run]);
    }
}

// Transforms L values, leaving X[bitreverse(p)] at position p.
template <u32 L>
void split_radix(i32 *re, i32 *im) {
    static_assert(L >= 8);
    split<L>(re, im);
    if constexpr (L >= 16) rotate_quarters<L>(re, im, 1, 0, L / 8 - 1);
    rotate_eighth_turns(re[5 * L / 8], im[5 * L / 8], re[7 * L / 8], im[7 * L / 8]);
    if constexpr (L >= 16) rotate_quarters<L>(re, im, L / 8 + 1, L / 8 - 1, L / 4 - 2);
    split_radix<L / 2>(re, im);
    split_radix<L / 4>(re + L / 2, im + L / 2);
    split_radix<L / 4>(re + 3 * L / 4, im + 3 * L / 4);
}

template <>
void split_radix<2>(i32 *re, i32 *im) {
    butterfly(re[0], re[1]);
    butterfly(im[0], im[1]);
}

// After the split, elements 2 and 3 are outputs already.
template <>
void split_radix<4>(i32 *re, i32 *im) {
    split<4>(re, im);
    split_radix<2>(re, im);
}

// Swaps every x[p] with x[bitreverse(p)], p = high Row + low: bitreverse(p) = reversed[low] Row + reversed[high].
template <std::size_t N, std::size_t Rows>
void bit_reverse(std::span<i32, N> x, const std::array<u8, Rows> &reversed) {
    constexpr std::size_t row = N / Rows;
    for (std::size_t low = row - 1; low > 0; --low) {
        const std::size_t target = reversed[low];
        std::swap(x[low], x[row * target]);
        for (std::size_t high = 1; high < target; ++high) {
            std::swap(x[low + high * row], x[row * target + reversed[high]]);
        }
    }
}

}  // namespace

template <std::size_t N>
void fft(std::span<i32, N> re, std::span<i32, N> im) {
    split_radix<N>(re.data(), im.data());
    if constexpr (N == 512) {
        bit_reverse(re, tables::reversed_5_bits);
        bit_reverse(im, tables::reversed_5_bits);
    } else {
        bit_reverse(re, tables::reversed_3_bits);
        bit_reverse(im, tables::reversed_3_bits);
    }
}

template void fft<512>(std::span<i32, 512>, std::span<i32, 512>);
template void fft<64>(std::span<i32, 64>, std::span<i32, 64>);

}  // namespace tavik
