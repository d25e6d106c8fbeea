// Split-radix decimation-in-frequency FFT on 32-bit integers, without scaling in any stage, then a bit-reversal
// permutation. A step of size L splits x = re + j im into
//   the even outputs:        x[i] + x[i + L/2], a transform of size L/2
//   the outputs 4 m + 1:     (d - j e) e^(-j a),  d = x[i] - x[i + L/2], e = x[i + L/4] - x[i + 3 L/4], of size L/4
//   the outputs 4 m + 3:     (d + j e) e^(-j 3 a), a = 2 pi i / L, of size L/4
#include "filterbank/fft.h"

#include <algorithm>

#include "filterbank/split_radix.h"
#include "filterbank/vector_product.h"
#include "tables/fft_tables.h"

namespace tavik {
namespace {

using tables::cos_eighth_turn_q31;
using tables::Rotation;
using tables::StepRotations;

struct Complex {
    i32 re;
    i32 im;
};

Complex add(Complex a, Complex b) { return {wrap_add(a.re, b.re), wrap_add(a.im, b.im)}; }
Complex subtract(Complex a, Complex b) { return {wrap_sub(a.re, b.re), wrap_sub(a.im, b.im)}; }
Complex times_j(Complex a) { return {wrap_sub(0, a.im), a.re}; }

// x e^(-j a) in three multiplications. Not a call, or the loop of a step is none of vectors.
inline Complex rotate(Complex x, Rotation by) {
    const i32 common = vector_mulhi(wrap_add(x.re, x.im) << 2, by.c);
    return {wrap_add(vector_mulhi(x.im << 2, by.q), common), wrap_add(vector_mulhi(x.re << 2, by.p), common)};
}

// Rotation by a quarter of pi.
Complex rotate_eighth_turn(Complex x) {
    const i32 sum = wrap_add(x.re, x.im) << 1;
    const i32 difference = wrap_sub(x.im, x.re) << 1;
    return {mulhi(sum, cos_eighth_turn_q31), mulhi(difference, cos_eighth_turn_q31)};
}

// By three quarters of pi.
Complex rotate_three_eighth_turns(Complex x) {
    const i32 sum = wrap_add(x.re, x.im) << 1;
    const i32 difference = wrap_sub(x.im, x.re) << 1;
    return {mulhi(difference, cos_eighth_turn_q31), mulhi(sum, -cos_eighth_turn_q31)};
}

// Values of the four quarters at the same i, before or after a step.
struct Quarters {
    Complex x0, x1, x2, x3;
};

// A step up to the rotation of the last two.
Quarters split(const Quarters &x) {
    const Complex difference = subtract(x.x0, x.x2);
    const Complex je = times_j(subtract(x.x1, x.x3));
    return {add(x.x0, x.x2), add(x.x1, x.x3), subtract(difference, je), add(difference, je)};
}

Quarters load(const i32 *re, const i32 *im, u32 quarter) {
    return {{re[0], im[0]},
            {re[quarter], im[quarter]},
            {re[2 * quarter], im[2 * quarter]},
            {re[3 * quarter], im[3 * quarter]}};
}

void store(i32 *re, i32 *im, u32 quarter, const Quarters &y) {
    re[0] = y.x0.re, im[0] = y.x0.im;
    re[quarter] = y.x1.re, im[quarter] = y.x1.im;
    re[2 * quarter] = y.x2.re, im[2 * quarter] = y.x2.im;
    re[3 * quarter] = y.x3.re, im[3 * quarter] = y.x3.im;
}

// The step for all i < quarter, from pointers to each quarter.
void step_run(i32 *__restrict re0, i32 *__restrict re1, i32 *__restrict re2, i32 *__restrict re3, i32 *__restrict im0,
              i32 *__restrict im1, i32 *__restrict im2, i32 *__restrict im3, StepRotations rotations, u32 quarter) {
    for (u32 i = 0; i < quarter; ++i) {
        const Quarters y = split({{re0[i], im0[i]}, {re1[i], im1[i]}, {re2[i], im2[i]}, {re3[i], im3[i]}});
        const Complex first = rotate(y.x2, rotations.once(i));
        const Complex third = rotate(y.x3, rotations.thrice(i));
        re0[i] = y.x0.re, im0[i] = y.x0.im;
        re1[i] = y.x1.re, im1[i] = y.x1.im;
        re2[i] = first.re, im2[i] = first.im;
        re3[i] = third.re, im3[i] = third.im;
    }
}

// Element L/8 of a step: its rotations are eighth turns.
Quarters step_with_eighth_turns(const Quarters &x) {
    const Quarters y = split(x);
    return {y.x0, y.x1, rotate_eighth_turn(y.x2), rotate_three_eighth_turns(y.x3)};
}

// A step of size L >= 16.
void step(i32 *re, i32 *im, u32 size) {
    const u32 quarter = size / 4;
    const u32 middle = size / 8;
    const Quarters y = step_with_eighth_turns(load(re + middle, im + middle, quarter));
    step_run(re, re + quarter, re + 2 * quarter, re + 3 * quarter, im, im + quarter, im + 2 * quarter, im + 3 * quarter,
             StepRotations(size), quarter);
    store(re + middle, im + middle, quarter, y);
}

// Both values of a transform of 2.
void transform_2(Complex &a, Complex &b) {
    const Complex sum = add(a, b);
    b = subtract(a, b);
    a = sum;
}

// After the step, elements 2 and 3 are outputs already.
void transform_4(i32 *re, i32 *im) {
    Quarters y = split(load(re, im, 1));
    transform_2(y.x0, y.x1);
    store(re, im, 1, y);
}

void transform_8(i32 *re, i32 *im) {
    Quarters even = split(load(re, im, 2));
    Quarters odd = step_with_eighth_turns(load(re + 1, im + 1, 2));
    Quarters low = split({even.x0, odd.x0, even.x1, odd.x1});
    transform_2(low.x0, low.x1);
    transform_2(even.x2, odd.x2);
    transform_2(even.x3, odd.x3);
    store(re, im, 1, low);
    store(re + 4, im + 4, 1, {even.x2, odd.x2, even.x3, odd.x3});
}

// Transforms n values, leaving X[bitreverse(p)] at position p.
void split_radix(i32 *re, i32 *im, u32 n) {
    for (u32 size = n; size >= tables::smallest_rotated_step; size /= 2) {
        for_each_transform(n, size, [&](u32 p) { step(re + p, im + p, size); });
    }
    for (u32 p = 0; p < n; p += 8) {
        if (is_transform(p / 8)) {
            transform_8(re + p, im + p);
        } else {
            transform_4(re + p, im + p);
            transform_4(re + p + 4, im + p + 4);
        }
    }
}

// Swaps every x[p] with x[bitreverse(p)], p = high row + low: bitreverse(p) = reversed[low] row + reversed[high].
void bit_reverse(std::span<i32> x, std::span<const u8> reversed) {
    const std::size_t row = x.size() / reversed.size();
    for (std::size_t low = row - 1; low > 0; --low) {
        const std::size_t target = reversed[low];
        std::swap(x[low], x[row * target]);
        for (std::size_t high = 1; high < target; ++high) {
            std::swap(x[low + high * row], x[row * target + reversed[high]]);
        }
    }
}

}  // namespace

void fft(std::span<i32> re, std::span<i32> im) {
    split_radix(re.data(), im.data(), static_cast<u32>(re.size()));
    const auto reversed = re.size() == 512 ? std::span<const u8>(tables::reversed_5_bits) : tables::reversed_3_bits;
    bit_reverse(re, reversed);
    bit_reverse(im, reversed);
}

}  // namespace tavik
