// NEON twins: four 3/4 powers at a time, of which only the table look-ups are scalar.
#include <arm_neon.h>

#include <array>

#include "quant/power34.h"

namespace tavik::neon {
namespace {

using tables::pow34_dropped_bits;
using tables::pow34_scale;

// The two small tables of the 3/4 power, byte by byte, for vector look-ups; 0 beyond their last entry.
constexpr std::array<u8, 32> make_scale_bytes() {
    std::array<u8, 32> bytes{};
    for (std::size_t j = 0; j < pow34_scale.size(); ++j) {
        bytes[2 * j] = static_cast<u8>(pow34_scale[j]);
        bytes[2 * j + 1] = static_cast<u8>(pow34_scale[j] >> 8);
    }
    return bytes;
}

constexpr std::array<u8, 16> make_dropped_bits() {
    std::array<u8, 16> bits{};
    for (std::size_t j = 0; j < pow34_dropped_bits.size(); ++j) bits[j] = pow34_dropped_bits[j];
    return bits;
}

constexpr std::array<u8, 32> scale_bytes = make_scale_bytes();
constexpr std::array<u8, 16> dropped_bits = make_dropped_bits();

struct ScaleTables {
    uint8x16x2_t scale;
    uint8x16_t dropped;
};

uint32x4_t look_up(const u32 *table, uint32x4_t index) {
    const u64 low = vgetq_lane_u64(vreinterpretq_u64_u32(index), 0);
    const u64 high = vgetq_lane_u64(vreinterpretq_u64_u32(index), 1);
    uint32x4_t values = vdupq_n_u32(table[static_cast<u32>(low)]);
    values = vsetq_lane_u32(table[low >> 32], values, 1);
    values = vsetq_lane_u32(table[static_cast<u32>(high)], values, 2);
    return vsetq_lane_u32(table[high >> 32], values, 3);
}

// pow34() of any magnitudes below 2^23. The table holds the powers of small ones too, in the same Q format; they have
// j = 0 like those up to 4096, and of both indices below theirs is the larger.
uint32x4_t raise_any(uint32x4_t a, const ScaleTables &tables) {
    constexpr u32 first_index = tavik::tables::pow34_table_begin - tavik::tables::small_pow34_entries;
    const uint32x4_t j = vqsubq_u32(vdupq_n_u32(32 - 12), vclzq_u32(a));
    const uint32x4_t n = vshlq_u32(a, vsubq_s32(vdupq_n_s32(3), vreinterpretq_s32_u32(j)));
    const int32x4_t small_index =
        vreinterpretq_s32_u32(vminq_u32(a, vdupq_n_u32(tavik::tables::small_pow34_entries - 1)));
    const int32x4_t large_index = vreinterpretq_s32_u32(vsubq_u32(n, vdupq_n_u32(first_index)));
    const uint32x4_t index = vreinterpretq_u32_s32(vmaxq_s32(small_index, large_index));
    const uint32x4_t power_q11 = look_up(tavik::tables::pow34_q11.data(), index);

    // Bytes 2 j and 2 j + 1 of the scales, and two that lie beyond the table.
    const uint32x4_t scale_index = vmlaq_n_u32(vdupq_n_u32(0xFFFF0100), j, 0x0202);
    const uint32x4_t scale = vreinterpretq_u32_u8(vqtbl2q_u8(tables.scale, vreinterpretq_u8_u32(scale_index)));
    // Entry 0, 0, for the three upper bytes.
    const int32x4_t dropped = vreinterpretq_s32_u8(vqtbl1q_u8(tables.dropped, vreinterpretq_u8_u32(j)));
    const uint32x4_t product = vmulq_u32(vshlq_u32(power_q11, vnegq_s32(dropped)), scale);
    return vshlq_u32(product, vsubq_s32(dropped, vdupq_n_s32(15)));
}

}  // namespace

void raise_to_three_quarters(std::span<const i32> spectrum, u32 *out) {
    const uint32x4_t largest_magnitude = vdupq_n_u32((1u << 23) - 1);
    const ScaleTables tables = {vld1q_u8_x2(scale_bytes.data()), vld1q_u8(dropped_bits.data())};
    const u16 *const small = tavik::tables::small_pow34.data();
    for (const i32 *x = spectrum.data(), *const end = x + spectrum.size(); x != end; x += 4, out += 4) {
        const uint32x4_t a = vreinterpretq_u32_s32(vabsq_s32(vld1q_s32(x)));
        if (vmaxvq_u32(a) < tavik::tables::small_pow34_entries) {
            const u64 low = vgetq_lane_u64(vreinterpretq_u64_u32(a), 0);
            const u64 high = vgetq_lane_u64(vreinterpretq_u64_u32(a), 1);
            out[0] = small[static_cast<u32>(low)];
            out[1] = small[low >> 32];
            out[2] = small[static_cast<u32>(high)];
            out[3] = small[high >> 32];
        } else {
            vst1q_u32(out, raise_any(vminq_u32(a, largest_magnitude), tables));
        }
    }
}

u32 largest(std::span<const u32> values) {
    const u32 *v = values.data();
    const u32 *const end = v + values.size();
    uint32x4_t largest = vdupq_n_u32(0);
    if (values.size() % 8 != 0) {
        largest = vld1q_u32(v);
        v += 4;
    }
    for (; v != end; v += 8) largest = vmaxq_u32(vmaxq_u32(largest, vld1q_u32(v)), vld1q_u32(v + 4));
    return vmaxvq_u32(largest);
}

}  // namespace tavik::neon
