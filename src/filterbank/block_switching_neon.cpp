#include <arm_neon.h>

#include "filterbank/block_switching.h"

namespace tavik {

// As in the portable version, the magnitude of -2^31 is negative and never the largest.
void neon::measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks) {
    constexpr u32 length = frame_length / subblocks;
    const i32 *from = block.data();
    for (i32 &peak : peaks) {
        int32x4_t largest = vdupq_n_s32(0);
        for (const i32 *end = from + length; from != end; from += 16) {
            const int32x4x4_t x = vld1q_s32_x4(from);
            const int32x4_t low = vmaxq_s32(vabsq_s32(x.val[0]), vabsq_s32(x.val[1]));
            const int32x4_t high = vmaxq_s32(vabsq_s32(x.val[2]), vabsq_s32(x.val[3]));
            largest = vmaxq_s32(largest, vmaxq_s32(low, high));
        }
        peak = vmaxvq_s32(largest);
    }
}

}  // namespace tavik
