// The FFT on four values at a time. Steps of 16 values and more take four neighbours i ... i + 3; what then is left, 64
// blocks of 8 values, is done for four blocks at once, with a block in every lane.
#include <arm_neon.h>

#include "filterbank/fft.h"
#include "filterbank/reversed_quad.h"
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

// x e^(-j a) in three multiplications, as the portable version does it. Within the headroom mulhi(x << 2, c) is
// vqdmulhq_s32(x << 1, c).
Quad rotate(Quad x, int32x4_t c, int32x4_t p, int32x4_t q) {
    const int32x4_t re = vshlq_n_s32(x.re, 1);
    const int32x4_t im = vshlq_n_s32(x.im, 1);
    const int32x4_t common = vqdmulhq_s32(vaddq_s32(re, im), c);
    return {vaddq_s32(vqdmulhq_s32(im, q), common), vaddq_s32(vqdmulhq_s32(re, p), common)};
}

// (re + im) cos(pi / 4) and (im - re) cos(pi / 4)
int32x4_t scaled_sum(Quad x) { return vqdmulhq_n_s32(vaddq_s32(x.re, x.im), cos_eighth_turn_q31); }
int32x4_t scaled_difference(Quad x) { return vqdmulhq_n_s32(vsubq_s32(x.im, x.re), cos_eighth_turn_q31); }

// Where the rotations of the step of 512 are unfolded to: by a as c, p, q, s, then by 3 a as c, p, q, each for
// i = 0 ... 128. In both, those of i and of 128 - i follow from each other. The quads by 3 a begin at i = -1, for which
// there is room.
constexpr u32 once_words = tables::rotation_words;
constexpr u32 thrice_words = 3;
constexpr u32 once_begin = 3 * once_words;
constexpr u32 thrice_begin = once_begin + (tables::quarter_turn + 1) * once_words + thrice_words;
static_assert(thrice_begin + (tables::quarter_turn + 2) * thrice_words <= neon::fft_512_words);

// From the table, with cos(pi / 2 - a) = sin a.
void unfold_once(i32 *begin) {
    const i32 *entry = tables::fft_rotations.data();
    i32 *up = begin;
    i32 *down = begin + (tables::quarter_turn - 3) * once_words;
    do {
        const int32x4x4_t x = vld4q_s32(entry);
        const int32x4x4_t mirrored = {reversed(x.val[3]), reversed(x.val[1]), reversed(vnegq_s32(x.val[2])),
                                      reversed(x.val[0])};
        vst4q_s32(up, x);
        vst4q_s32(down, mirrored);
        entry += 4 * once_words;
        up += 4 * once_words;
        down -= 4 * once_words;
    } while (up < down);
    vst1q_s32(up, vld1q_s32(entry));
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

// c, p, q of four neighbours, and the sines of their angles.
struct Rotations {
    int32x4_t c, p, q, s;
};

// Every third of the rotations by a.
Rotations gather_every_third(const i32 *once) {
    Rotations x = {vld1q_s32(once), vld1q_s32(once + 3 * once_words), vld1q_s32(once + 6 * once_words),
                   vld1q_s32(once + 9 * once_words)};
    transpose(x.c, x.p, x.q, x.s);
    return x;
}

// Those by 3 a are those by a of 3 i = 0, 3 ... 126, and from 129 on of 3 i - 128, further by a quarter of a turn:
// cos(pi / 2 + b) = -sin b. Those of 128 - i have cos(3 pi / 2 - 3 a) = -sin 3 a.
void unfold_thrice(i32 *begin, const i32 *once) {
    const i32 *entry = once - 3 * once_words;
    const i32 *at_quarter_turn = once + tables::quarter_turn * once_words;
    i32 *up = begin - thrice_words;
    i32 *down = begin + (tables::quarter_turn - 2) * thrice_words;
    do {
        const bool is_turned = entry > at_quarter_turn;
        Rotations x = gather_every_third(is_turned ? entry - tables::quarter_turn * once_words : entry);
        if (is_turned) x = {vnegq_s32(x.s), x.q, vnegq_s32(x.p), x.c};
        const int32x4x3_t y = {x.c, x.p, x.q};
        const int32x4x3_t mirrored = {reversed(vnegq_s32(x.s)), reversed(vnegq_s32(x.p)), reversed(x.q)};
        vst3q_s32(up, y);
        vst3q_s32(down, mirrored);
        entry += 4 * 3 * once_words;
        up += 4 * thrice_words;
        down -= 4 * thrice_words;
    } while (up < down + 4 * thrice_words);
}

// Replaces these lanes of what is stored at z.
void replace(i32 *z, uint32x4_t lanes, int32x4_t by) { vst1q_s32(z, vbslq_s32(lanes, by, vld1q_s32(z))); }

// A step of size L. At i = L/8, where q = 0 in the rotation by a, the rotations give one part of the values only.
void step(i32 *z, u32 size, const i32 *once, const i32 *thrice) {
    const u32 words = quad_re(size / 4);
    i32 *x0 = z;
    i32 *x1 = z + words;
    i32 *x2 = x1 + words;
    i32 *x3 = x2 + words;
    const i32 *end = x1;
    const i32 *behind_middle = x2 + quad_re(size / 8) / quad_words * quad_words + quad_words;
    do {
        Quad a = load(x0);
        Quad b = load(x1);
        Quad c = load(x2);
        Quad d = load(x3);
        butterfly(a, c);
        butterfly(b, d);
        turn(c, d);
        const int32x4x4_t by_once = vld4q_s32(once);
        const int32x4x3_t by_thrice = vld3q_s32(thrice);
        store(x0, a);
        store(x1, b);
        store(x2, rotate(c, by_once.val[0], by_once.val[1], by_once.val[2]));
        store(x3, rotate(d, by_thrice.val[0], by_thrice.val[1], by_thrice.val[2]));
        x0 += quad_words;
        x1 += quad_words;
        x2 += quad_words;
        x3 += quad_words;
        once += 4 * once_words;
        thrice += 4 * thrice_words;
        if (x2 == behind_middle) [[unlikely]] {
            const uint32x4_t is_eighth_turn = vceqzq_s32(by_once.val[2]);
            replace(x2 - 4, is_eighth_turn, scaled_difference(c));
            replace(x3 - 8, is_eighth_turn, scaled_difference(d));
        }
    } while (x0 != end);
}

// Makes of the rotations of a step those of one of half the size, which has `count` / 2: every second one of them.
void halve(i32 *once, i32 *thrice, u32 count) {
    const i32 *from_once = once;
    const i32 *from_thrice = thrice;
    const i32 *end = once + count * once_words;
    do {
        const int32x4x4_t a = vld4q_s32(from_once);
        from_once += 4 * once_words;
        const int32x4x4_t b = vld4q_s32(from_once);
        from_once += 4 * once_words;
        const int32x4x3_t c = vld3q_s32(from_thrice);
        from_thrice += 4 * thrice_words;
        const int32x4x3_t d = vld3q_s32(from_thrice);
        from_thrice += 4 * thrice_words;
        const int32x4x4_t by_once = {vuzp1q_s32(a.val[0], b.val[0]), vuzp1q_s32(a.val[1], b.val[1]),
                                     vuzp1q_s32(a.val[2], b.val[2]), vuzp1q_s32(a.val[3], b.val[3])};
        const int32x4x3_t by_thrice = {vuzp1q_s32(c.val[0], d.val[0]), vuzp1q_s32(c.val[1], d.val[1]),
                                       vuzp1q_s32(c.val[2], d.val[2])};
        vst4q_s32(once, by_once);
        vst3q_s32(thrice, by_thrice);
        once += 4 * once_words;
        thrice += 4 * thrice_words;
    } while (from_once != end);
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
    i32 *once = out.data() + once_begin;
    i32 *thrice = out.data() + thrice_begin;
    unfold_once(once);
    unfold_thrice(thrice, once);
    for (u32 size = 512;; size /= 2) {
        for_each_transform(512, size, [&](u32 p) { step(z.data() + 2 * p, size, once, thrice); });
        if (size == tables::smallest_rotated_step) break;
        halve(once, thrice, size / 4);
    }
    for (u32 b = 0; b < groups; ++b) transform_group(z.data(), out.data(), b, is_transform(b));
    // All groups are of one kind but the last, where block 31 is two transforms of 4 between transforms of 8.
    constexpr u32 last = groups - 1;
    transform_group(z.data(), z.data(), last, false);
    const i32 *from = &z[quad_re(4 * last + 2)];
    i32 *to = &out[quad_re(4 * last + 2)];
#pragma GCC unroll 1  // not worth 80 bytes
    for (u32 j = 0; j < 8; ++j, from += quad_re(64), to += quad_re(64)) {
        to[0] = from[0];
        to[4] = from[4];
    }
}

}  // namespace tavik
