// A vector with its lanes in reverse order.
#pragma once

#include <arm_neon.h>

namespace tavik {

inline constexpr uint8x16_t reversed_bytes = {12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3};

inline int32x4_t reversed(int32x4_t x) {
    return vreinterpretq_s32_u8(vqtbl1q_u8(vreinterpretq_u8_s32(x), reversed_bytes));
}

}  // namespace tavik
