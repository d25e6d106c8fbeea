// Folding and rotations of the long MDCT, eight complex values at a time: four from k on upwards, and the four that
// mirror them, from 511 - k on downwards, which are made of the same samples.
#include <arm_neon.h>

#include "filterbank/fft.h"
#include "filterbank/mdct.h"
#include "filterbank/reversed_quad.h"

namespace tavik {
namespace {

using neon::fft_512_words;
using Quads = std::span<i32, fft_512_words>;
using ConstQuads = std::span<const i32, fft_512_words>;

// windowed(x, w) of portable, for samples of 16 bits: x 2^15 w / 2^31
int32x4_t windowed_quad(int32x4_t x, int32x4_t window_q23) { return vqdmulhq_s32(vshlq_n_s32(x, 15), window_q23); }

// (r + j i)(c + j s) 2 / 2^32 with the Q27 pairs c, s: mulhi(r << 1, c) is vqdmulhq_s32(r, c), as |r| < 2^24.
void store_rotated(i32 *z, int32x4_t r, int32x4_t i, int32x4x2_t pairs) {
    const int32x4_t c = pairs.val[0];
    const int32x4_t s = pairs.val[1];
    const int32x4x2_t words = {vsubq_s32(vqdmulhq_s32(r, c), vqdmulhq_s32(i, s)),
                               vaddq_s32(vqdmulhq_s32(i, c), vqdmulhq_s32(r, s))};
    vst1q_s32_x2(z, words);
}

// Coefficients of four FFT outputs from k on: 2 k, 2 k + 2 ... and 1023 - 2 k, 1021 - 2 k ...
struct Coefficients {
    int32x4_t upwards;
    int32x4_t downwards;
};

// The pairs are even, so that mulhi(x, c) is vqdmulhq_s32(x, c / 2).
Coefficients coefficients(const i32 *z, int32x4x2_t pairs) {
    const int32x4x2_t x = vld1q_s32_x2(z);
    const int32x4_t re = x.val[0];
    const int32x4_t im = x.val[1];
    const int32x4_t c = vshrq_n_s32(pairs.val[0], 1);
    const int32x4_t s = vshrq_n_s32(pairs.val[1], 1);
    return {vsubq_s32(vqdmulhq_s32(im, s), vqdmulhq_s32(re, c)), vaddq_s32(vqdmulhq_s32(im, c), vqdmulhq_s32(re, s))};
}

// As portable::long_mdct folds, with the samples of each half taken from its middle upwards and downwards, those of
// even and of odd index apart. The values from k on have their second half sums from below: reversed as samples,
// windows or products. In the mirrored values it is the other way round, so that they come out in their order.
void window_and_fold(History x, const LongWindow &window, Quads z) {
    constexpr u32 quarter = frame_length / 2;
    const i32 *up = x.data() + quarter;
    const i32 *down = up;
    const i32 *late_up = up + frame_length;
    const i32 *late_down = late_up;
    const i32 *rise_up = window.rise.data() + quarter;
    const i32 *rise_down = rise_up;
    const i32 *fall_up = window.fall.data() + quarter;
    const i32 *fall_down = fall_up;
    const i32 *pair_up = TAVIK_W2;
    const i32 *pair_down = pair_up + frame_length;
    i32 *z_up = z.data();
    i32 *z_down = z_up + fft_512_words;
    do {
        down -= 8, late_down -= 8, rise_down -= 8, fall_down -= 8, pair_down -= 8, z_down -= 8;
        const int32x4x2_t a = vld2q_s32(up);
        const int32x4x2_t b = vld2q_s32(down);
        const int32x4x2_t c = vld2q_s32(late_up);
        const int32x4x2_t d = vld2q_s32(late_down);
        const int32x4x2_t rise_a = vld2q_s32(rise_up);
        const int32x4x2_t rise_b = vld2q_s32(rise_down);
        const int32x4x2_t fall_a = vld2q_s32(fall_up);
        const int32x4x2_t fall_b = vld2q_s32(fall_down);
        store_rotated(
            z_up,
            vaddq_s32(windowed_quad(reversed(d.val[1]), fall_a.val[0]),
                      windowed_quad(c.val[0], reversed(fall_b.val[1]))),
            vsubq_s32(windowed_quad(a.val[0], rise_a.val[0]), reversed(windowed_quad(b.val[1], rise_b.val[1]))),
            vld2q_s32(pair_up));
        store_rotated(
            z_down, vsubq_s32(reversed(windowed_quad(a.val[1], rise_a.val[1])), windowed_quad(b.val[0], rise_b.val[0])),
            vaddq_s32(windowed_quad(d.val[0], reversed(fall_a.val[1])),
                      windowed_quad(reversed(c.val[1]), fall_b.val[0])),
            vld2q_s32(pair_down));
        up += 8, late_up += 8, rise_up += 8, fall_up += 8, pair_up += 8, z_up += 8;
    } while (z_up < z_down);
}

void rotate_out(ConstQuads z, Spectrum spectrum) {
    const i32 *z_up = z.data();
    const i32 *z_down = z_up + fft_512_words;
    const i32 *pair_up = TAVIK_W2;
    const i32 *pair_down = pair_up + frame_length;
    i32 *up = spectrum.data();
    i32 *down = up + frame_length;
    do {
        z_down -= 8, pair_down -= 8, down -= 8;
        const Coefficients first = coefficients(z_up, vld2q_s32(pair_up));
        const Coefficients last = coefficients(z_down, vld2q_s32(pair_down));
        const int32x4x2_t from_up = {first.upwards, reversed(last.downwards)};
        const int32x4x2_t from_down = {last.upwards, reversed(first.downwards)};
        vst2q_s32(up, from_up);
        vst2q_s32(down, from_down);
        z_up += 8, pair_up += 8, up += 8;
    } while (z_up < z_down);
}

}  // namespace

void neon::long_mdct(History x, const LongWindow &window, Spectrum spectrum, std::span<i32, frame_length> scratch) {
    window_and_fold(x, window, spectrum);
    fft_512(spectrum, scratch);
    rotate_out(scratch, spectrum);
}

}  // namespace tavik
