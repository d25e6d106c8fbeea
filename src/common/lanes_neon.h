// The operations of lanes.h that 64-bit Arm has instructions for.
#pragma once

#include <arm_neon.h>

#include <array>
#include <bit>

#include "common/lanes.h"

namespace tavik {

inline I32<4> abs(I32<4> x) { return {vabsq_s32(x.v)}; }
inline i32 sum_of_lanes(I32<4> x) { return vaddvq_s32(x.v); }
inline u32 sum_of_lanes(U32<4> x) { return vaddvq_u32(x.v); }
inline i32 largest_lane(I32<4> x) { return vmaxvq_s32(x.v); }
inline u32 largest_lane(U32<4> x) { return vmaxvq_u32(x.v); }
inline U32<4> leading_zeros(U32<4> x) { return {vclzq_u32(x.v)}; }

template <u32 Shift>
inline I32<4> product(I32<4> a, I32<4> b) {
    return {vqdmulhq_s32((a << (31 - Shift)).v, b.v)};
}
inline I32<4> rounded_product_q31(I32<4> a, I32<4> b) { return {vqrdmulhq_s32(a.v, b.v)}; }

template <>
struct WideLanes<4> {
    int64x2_t low = vdupq_n_s64(0);
    int64x2_t high = vdupq_n_s64(0);

    void add_product(I32<4> a, I32<4> b) {
        low = vmlal_s32(low, vget_low_s32(a.v), vget_low_s32(b.v));
        high = vmlal_high_s32(high, a.v, b.v);
    }
    template <u32 Shift>
    I32<4> shifted_down() const {
        return {vshrn_high_n_s64(vshrn_n_s64(low, Shift), high, Shift)};
    }
};

template <>
struct WideTotal<4> {
    int64x2_t sums = vdupq_n_s64(0);

    void add_product(I32<4> a, I32<4> b) {
        sums = vmlal_high_s32(vmlal_s32(sums, vget_low_s32(a.v), vget_low_s32(b.v)), a.v, b.v);
    }
    i64 total() const { return vaddvq_s64(sums); }
};

inline i32 quad_number(I32<4> x, i32 radix) {
    const I32<4> digits = {{radix * radix * radix, radix * radix, radix, 1}};
    return sum_of_lanes(x * digits);
}
inline std::array<i32, 2> pair_numbers(I32<4> x, i32 radix) {
    const I32<4> digits = {{radix, 1, radix, 1}};
    const int32x4_t scaled = (x * digits).v;
    const int32x4_t numbers = vpaddq_s32(scaled, scaled);
    return {vgetq_lane_s32(numbers, 0), vgetq_lane_s32(numbers, 1)};
}

inline U32<4> look_up_bytes(const ByteTable &table, U32<4> index) {
    return {vreinterpretq_u32_u8(vqtbl1q_u8(vld1q_u8(table.data()), vreinterpretq_u8_u32(index.v)))};
}

template <>
inline void copy_four<4>(const i32 *from, i32 *to) {
    vst1q_s32_x4(to, vld1q_s32_x4(from));
}
inline I32<4> add_distance(I32<4> sum, I32<4> a, I32<4> b) { return {vabaq_s32(sum.v, a.v, b.v)}; }
inline I32<4> reversed(I32<4> x) {
    constexpr uint8x16_t order = {12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3};
    return {vreinterpretq_s32_u8(vqtbl1q_u8(vreinterpretq_u8_s32(x.v), order))};
}
// One instruction each, which moves the pointer on too.
inline void load_row(const i32 *from, std::array<I32<4>, 2> &to) {
    const int32x4x2_t x = vld1q_s32_x2(from);
    to = {I32<4>{x.val[0]}, I32<4>{x.val[1]}};
}
inline void load_row(const i32 *from, std::array<I32<4>, 3> &to) {
    const int32x4x3_t x = vld1q_s32_x3(from);
    to = {I32<4>{x.val[0]}, I32<4>{x.val[1]}, I32<4>{x.val[2]}};
}
inline void load_row(const i32 *from, std::array<I32<4>, 4> &to) {
    const int32x4x4_t x = vld1q_s32_x4(from);
    to = {I32<4>{x.val[0]}, I32<4>{x.val[1]}, I32<4>{x.val[2]}, I32<4>{x.val[3]}};
}
inline void store_two(i32 *to, I32<4> first, I32<4> second) {
    const int32x4x2_t x = {first.v, second.v};
    vst1q_s32_x2(to, x);
}
template <>
inline Pairs<4> load_pairs<4>(const i32 *from) {
    const int32x4x2_t pairs = vld2q_s32(from);
    return {{pairs.val[0]}, {pairs.val[1]}};
}
template <>
inline Pairs<4> load_pairs<4>(const i16 *from) {
    const int16x4x2_t pairs = vld2_s16(from);
    return {{vmovl_s16(pairs.val[0])}, {vmovl_s16(pairs.val[1])}};
}
inline void store_pairs(i32 *to, Pairs<4> x) {
    const int32x4x2_t pairs = {x.first.v, x.second.v};
    vst2q_s32(to, pairs);
}

}  // namespace tavik
