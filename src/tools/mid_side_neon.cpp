#include <arm_neon.h>

#include "tools/mid_side.h"

namespace tavik::neon {
namespace {

// A band's sums in four lanes each.
struct LaneSums {
    int32x4_t both = vdupq_n_s32(0);
    int32x4_t side = vdupq_n_s32(0);

    // A difference of halved lines fits 32 bits.
    void add(int32x4_t left, int32x4_t right) {
        const int32x4_t l = vshrq_n_s32(left, 1);
        const int32x4_t r = vshrq_n_s32(right, 1);
        both = vabaq_s32(vabaq_s32(both, l, vdupq_n_s32(0)), r, vdupq_n_s32(0));
        side = vabaq_s32(side, l, r);
    }
    BandSums total() const {
        const int32x4_t pairs = vpaddq_s32(both, side);
        const int32x2_t totals = vshr_n_s32(vpadd_s32(vget_low_s32(pairs), vget_high_s32(pairs)), 5);
        return {vget_lane_s32(totals, 0), vget_lane_s32(totals, 1)};
    }
};

struct MidSide {
    int32x4_t mid;
    int32x4_t side;
};

MidSide mid_side(int32x4_t l, int32x4_t r) {
    return {vshrq_n_s32(vaddq_s32(l, r), 1), vshrq_n_s32(vsubq_s32(l, r), 1)};
}

}  // namespace

void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums) {
    const i32 *l = left.data() + offsets[0];
    const i32 *r = right.data() + offsets[0];
    for (BandSums &sum : sums) {
        ++offsets;
        const i32 *const end = left.data() + *offsets;
        LaneSums lanes;
        if ((end - l) % 8 != 0) {
            lanes.add(vld1q_s32(l), vld1q_s32(r));
            l += 4;
            r += 4;
        }
        for (; l != end; l += 8, r += 8) {
            const int32x4x2_t l_8 = vld1q_s32_x2(l);
            const int32x4x2_t r_8 = vld1q_s32_x2(r);
            lanes.add(l_8.val[0], r_8.val[0]);
            lanes.add(l_8.val[1], r_8.val[1]);
        }
        sum = lanes.total();
    }
}

void transform(std::span<i32> left, std::span<i32> right) {
    i32 *l = left.data();
    i32 *r = right.data();
    i32 *const end = l + left.size();
    if (left.size() % 8 != 0) {
        const MidSide first = mid_side(vld1q_s32(l), vld1q_s32(r));
        vst1q_s32(l, first.mid);
        vst1q_s32(r, first.side);
        l += 4;
        r += 4;
    }
    for (; l != end; l += 8, r += 8) {
        const int32x4x2_t l_8 = vld1q_s32_x2(l);
        const int32x4x2_t r_8 = vld1q_s32_x2(r);
        const MidSide low = mid_side(l_8.val[0], r_8.val[0]);
        const MidSide high = mid_side(l_8.val[1], r_8.val[1]);
        const int32x4x2_t mid = {{low.mid, high.mid}};
        const int32x4x2_t side = {{low.side, high.side}};
        vst1q_s32_x2(l, mid);
        vst1q_s32_x2(r, side);
    }
}

}  // namespace tavik::neon
