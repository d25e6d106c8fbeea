#include <arm_neon.h>

#include "interface/staging.h"

namespace tavik {
namespace {

void store_widened(i32 *to, int16x8_t samples) {
    const int32x4x2_t words = {vmovl_s16(vget_low_s16(samples)), vmovl_high_s16(samples)};
    vst1q_s32_x2(to, words);
}

}  // namespace

void neon::copy_frame(ConstFrame from, Frame to) {
    const i32 *source = from.data();
    i32 *target = to.data();
    for (const i32 *end = source + frame_length; source != end; source += 16, target += 16) {
        vst1q_s32_x4(target, vld1q_s32_x4(source));
    }
}

void neon::read_mono(const i16 *pcm, u32 count, Frame samples) {
    i32 *to = samples.data();
    for (const i32 *end = to + count; to != end; to += 8, pcm += 8) store_widened(to, vld1q_s16(pcm));
}

void neon::read_stereo(const i16 *pcm, u32 count, Frame left, Frame right) {
    i32 *to_left = left.data();
    i32 *to_right = right.data();
    for (const i32 *end = to_left + count; to_left != end; to_left += 8, to_right += 8, pcm += 16) {
        const int16x8x2_t pairs = vld2q_s16(pcm);
        store_widened(to_left, pairs.val[0]);
        store_widened(to_right, pairs.val[1]);
    }
}

}  // namespace tavik
