// The FFT on four values at a time. Steps of 16 values and more take four neighbours i ... i + 3; what then is left, 64
// blocks of 8 values, is done for four blocks at once, with a block in every lane.
#include <arm_neon.h>

#include "filterbank/fft.h"
#include "filterbank/split_radix.h"
#include "tables/fft_tables.h"

namespace tavik {
namespace {

using neon::quad_re;
using neon::quad_words;
using tables::cos_eighth_turn_q31;

struct Quad {
    int32x4_t re;
    int32x4_t im;
};

Quad load(const i32 *z) {
    const int32x4x2_t x = vld1q_s32_x2(z);
    return {x.val[0], x.val[1]};
}

void store(i32 *z, Quad x) {
    const int32x4x2_t words = {x.re, x.im};
    vst1q_s32_x2(z, words);
}

void butterfly(Quad &a, Quad &b) {
    const Quad difference{vsubq_s32(a.re, b.re), vsubq_s32(a.im, b.im)};
    a = {vaddq_s32(a.re, b.re), vaddq_s32(a.im, b.im)};
    b = difference;
}

// d - j e and d + j e
void turn(Quad &d, Quad &e) {
    const Quad sum{vsubq_s32(d.re, e.im), vaddq_s32(d.im, e.re)};
    d = {vaddq_s32(d.re, e.im), vsubq_s32(d.im, e.re)};
    e = sum;
}

// The rotations of four neighbours, see tables::fft_rotations.
struct Rotations {
    int32x4_t c, p, q;
};

Rotations load_rotations(const i32 *entry) { return {vld1q_s32(entry), vld1q_s32(entry + 4), vld1q_s32(entry + 8)}; }

Rotations every_second(const Rotations &low, const Rotations &high) {
    return {vuzp1q_s32(low.c, high.c), vuzp1q_s32(low.p, high.p), vuzp1q_s32(low.q, high.q)};
}

// x e^(-j a) in three multiplications, as the portable version does it. Within the headroom mulhi(x << 2, c) is
// vqdmulhq_s32(x << 1, c).
Quad rotate(Quad x, const Rotations &by) {
    const int32x4_t re = vshlq_n_s32(x.re, 1);
    const int32x4_t im = vshlq_n_s32(x.im, 1);
    const int32x4_t common = vqdmulhq_s32(vaddq_s32(re, im), by.c);
    return {vaddq_s32(vqdmulhq_s32(im, by.q), common), vaddq_s32(vqdmulhq_s32(re, by.p), common)};
}

// (re + im) cos(pi / 4) and (im - re) cos(pi / 4)
int32x4_t scaled_sum(Quad x) { return vqdmulhq_n_s32(vaddq_s32(x.re, x.im), cos_eighth_turn_q31); }
int32x4_t scaled_difference(Quad x) { return vqdmulhq_n_s32(vsubq_s32(x.im, x.re), cos_eighth_turn_q31); }

// Four neighbours in each quarter of a step.
struct Quarters {
    i32 *x0, *x1, *x2, *x3;

    Quarters(i32 *z, u32 words) : x0(z), x1(z + words), x2(z + 2 * words), x3(z + 3 * words) {}

    struct Odd {
        Quad x2, x3;  // before the rotation
    };

    // Does the step and moves on.
    Odd step(const Rotations &once, const Rotations &thrice) {
        Quad a = load(x0);
        Quad b = load(x1);
        Quad c = load(x2);
        Quad d = load(x3);
        butterfly(a, c);
        butterfly(b, d);
        turn(c, d);
        store(x0, a);
        store(x1, b);
        store(x2, rotate(c, once));
        store(x3, rotate(d, thrice));
        x0 += quad_words;
        x1 += quad_words;
        x2 += quad_words;
        x3 += quad_words;
        return {c, d};
    }

    // After a step with i = L/8 in this lane: the part of its values that the table's rotation does not give.
    template <int Lane>
    void complete_eighth_turns(const Odd &before) const {
        vst1q_lane_s32(x2 - quad_words + 4 + Lane, scaled_difference(before.x2), Lane);
        vst1q_lane_s32(x3 - quad_words + Lane, scaled_difference(before.x3), Lane);
    }
};

// The table has the rotations of four neighbours, by a and then by 3 a, together.
constexpr u32 half_entry = 3 * tables::rotation_run(0);

// A step of size L. Its quad with i = L/8 has that in lane 0, or, when it is the only one, in lane 2.
void step(i32 *z, u32 size, const i32 *rotation) {
    const bool takes_every_second = tables::rotation_stride(size) == 2;
    Quarters x(z, quad_re(size / 4));
    const i32 *end = x.x1;
    const i32 *behind_middle = z + quad_re(size / 8) / quad_words * quad_words + quad_words;
    do {
        Rotations once = load_rotations(rotation);
        Rotations thrice = load_rotations(rotation + half_entry);
        rotation += 2 * half_entry;
        if (takes_every_second) {
            once = every_second(once, load_rotations(rotation));
            thrice = every_second(thrice, load_rotations(rotation + half_entry));
            rotation += 2 * half_entry;
        }
        const Quarters::Odd before = x.step(once, thrice);
        if (x.x0 != behind_middle) continue;
        if (size == 16) {
            x.complete_eighth_turns<2>(before);
        } else {
            x.complete_eighth_turns<0>(before);
        }
    } while (x.x0 != end);
}

void transpose(int32x4_t &a, int32x4_t &b, int32x4_t &c, int32x4_t &d) {
    const int64x2_t ab_even = vreinterpretq_s64_s32(vtrn1q_s32(a, b));
    const int64x2_t ab_odd = vreinterpretq_s64_s32(vtrn2q_s32(a, b));
    const int64x2_t cd_even = vreinterpretq_s64_s32(vtrn1q_s32(c, d));
    const int64x2_t cd_odd = vreinterpretq_s64_s32(vtrn2q_s32(c, d));
    a = vreinterpretq_s32_s64(vtrn1q_s64(ab_even, cd_even));
    b = vreinterpretq_s32_s64(vtrn1q_s64(ab_odd, cd_odd));
    c = vreinterpretq_s32_s64(vtrn2q_s64(ab_even, cd_even));
    d = vreinterpretq_s32_s64(vtrn2q_s64(ab_odd, cd_odd));
}

void transform_4(Quad *x) {
    butterfly(x[0], x[2]);
    butterfly(x[1], x[3]);
    turn(x[2], x[3]);
    butterfly(x[0], x[1]);
}

// A transform of 8 values, or of 4 and 4.
void transform_block(Quad *x, bool is_transform_of_8) {
    if (is_transform_of_8) {
        butterfly(x[0], x[4]);
        butterfly(x[1], x[5]);
        butterfly(x[2], x[6]);
        butterfly(x[3], x[7]);
        turn(x[4], x[6]);
        turn(x[5], x[7]);
        x[5] = {scaled_sum(x[5]), scaled_difference(x[5])};
        x[7] = {scaled_difference(x[7]), vqdmulhq_n_s32(vaddq_s32(x[7].re, x[7].im), -cos_eighth_turn_q31)};
        butterfly(x[4], x[5]);
        butterfly(x[6], x[7]);
    } else {
        transform_4(x + 4);
    }
    transform_4(x);
}

constexpr u32 block_words = 2 * quad_words;
constexpr u32 groups = 16;  // of blocks b, b + 16, b + 32, b + 48

// Transforms the four blocks of group b. In the lanes' order, t = 0, 2, 1, 3, value j of all belongs to four
// neighbouring outputs: bitreverse(8 (16 t + b) + j) = 64 bitreverse(j) + 4 bitreverse(b) + bitreverse(t).
void transform_group(const i32 *z, i32 *out, u32 b, bool is_transform_of_8) {
    constexpr u32 distance = groups * block_words;
    const i32 *from = z + b * block_words;
    int32x4x4_t v0 = vld1q_s32_x4(from);
    int32x4x4_t v1 = vld1q_s32_x4(from + 2 * distance);
    int32x4x4_t v2 = vld1q_s32_x4(from + distance);
    int32x4x4_t v3 = vld1q_s32_x4(from + 3 * distance);
    transpose(v0.val[0], v1.val[0], v2.val[0], v3.val[0]);
    transpose(v0.val[1], v1.val[1], v2.val[1], v3.val[1]);
    transpose(v0.val[2], v1.val[2], v2.val[2], v3.val[2]);
    transpose(v0.val[3], v1.val[3], v2.val[3], v3.val[3]);
    Quad x[8] = {{v0.val[0], v0.val[1]}, {v1.val[0], v1.val[1]}, {v2.val[0], v2.val[1]}, {v3.val[0], v3.val[1]},
                 {v0.val[2], v0.val[3]}, {v1.val[2], v1.val[3]}, {v2.val[2], v2.val[3]}, {v3.val[2], v3.val[3]}};
    transform_block(x, is_transform_of_8);
    i32 *to = out + quad_re(4) * tables::reversed_4_bits[b];
    for (const u32 j : tables::reversed_3_bits) {
        store(to, x[j]);
        to += quad_re(64);
    }
}

}  // namespace

void neon::fft_512(std::span<i32, fft_512_words> z, std::span<i32, fft_512_words> out) {
    for (u32 size = 512; size >= tables::smallest_rotated_step; size /= 2) {
        const i32 *rotation = tables::fft_rotations.data() + tables::fft_rotations_begin(size);
        for_each_transform(512, size, [&](u32 p) { step(z.data() + 2 * p, size, rotation); });
    }
    for (u32 b = 0; b < groups; ++b) transform_group(z.data(), out.data(), b, is_transform(b));
    // All groups are of one kind but the last, where block 31 is two transforms of 4 between transforms of 8.
    constexpr u32 last = groups - 1;
    transform_group(z.data(), z.data(), last, false);
    for (u32 n = 4 * last + 2; n < 512; n += 64) {
        out[quad_re(n)] = z[quad_re(n)];
        out[neon::quad_im(n)] = z[neon::quad_im(n)];
    }
}

}  // namespace tavik
