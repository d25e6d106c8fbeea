// 3/4 power and quantizer gain: the two rules that turn a spectral magnitude into a quantized one.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "common/fixed_point.h"
#include "interface/kernels.h"
#include "tables/pow34_table.h"
#include "tavik.h"

namespace tavik {

// 3/4 power of 8 a for a = 2^11 ... 2^23 - 1: with j doublings from the table's range, the table's power of 8 a / 2^j
// times 2^(3 j / 4).
inline u32 large_pow34(u32 a) {
    const auto j = static_cast<u32>(std::bit_width(a)) - 12;
    const u32 power_q11 = tables::pow34_q11[(a << 3 >> j) - tables::pow34_table_begin + tables::small_pow34_entries];
    const u32 dropped = tables::pow34_dropped_bits[j];
    return ((power_q11 >> dropped) * tables::pow34_scale[j]) >> (15 - dropped);
}

// About floor((8 a)^(3/4)): exactly the largest integer below it for 0 < a < 4096, within 0.6 % above. A magnitude of
// 2^23 or more counts as 2^23 - 1. 0, or 4 ... 741381.
inline u32 pow34(u32 a) {
    constexpr u32 largest = (1u << 23) - 1;
    return a < tables::small_pow34_entries ? tables::small_pow34[a] : large_pow34(std::min(a, largest));
}

namespace portable {

// out[k] = (8 |spectrum[k]|)^(3/4), as pow34() has it; a multiple of 4 lines.
void raise_to_three_quarters(std::span<const i32> spectrum, u32 *out);

// Of a multiple of 4 values; 0 for an empty span.
u32 largest(std::span<const u32> values);

}  // namespace portable

#if defined(__aarch64__)
namespace neon {

void raise_to_three_quarters(std::span<const i32> spectrum, u32 *out);

u32 largest(std::span<const u32> values);

}  // namespace neon
#endif

#if defined(TAVIK_CHECK_KERNELS)
namespace checked {

inline void raise_to_three_quarters(std::span<const i32> spectrum, u32 *out) {
    neon::raise_to_three_quarters(spectrum, out);
    for (std::size_t k = 0; k < spectrum.size(); k += 4) {
        std::array<u32, 4> expected;
        portable::raise_to_three_quarters(spectrum.subspan(k, 4), expected.data());
        require_equal(std::equal(expected.begin(), expected.end(), out + k));
    }
}

inline u32 largest(std::span<const u32> values) {
    const u32 result = neon::largest(values);
    require_equal(result == portable::largest(values));
    return result;
}

}  // namespace checked
#endif

// Gain indices from here on quantize everything to zero.
inline constexpr u32 first_silencing_gain = 212;

inline constexpr u32 scale_factor_base = 100;  // scale factor and gain index of common_sf 0 and offset 0

// From this gain index on gains are Q20 and a step begins 624427/2^20 below its value.
inline constexpr u32 first_q20_gain = 58;
inline constexpr u32 q20_rounding = 424149;

// The smallest 3/4 power that a Q20 gain does not quantize to 0.
inline u32 smallest_nonzero_pow34(u32 gain) { return ((1u << 20) - q20_rounding + gain - 1) / gain; }

// The gain multiply of one gain index: q = (v gain + rounding) >> shift, v times 2^(-3 (i - 100) / 16).
struct GainRule {
    u64 gain;
    u64 rounding;  // 0.4045 of a step, one half below index 15
    u32 shift;
    u64 mask;  // the products of the smallest gains are taken in 32 bits

    u64 operator()(u32 v) const { return ((v * gain + rounding) & mask) >> shift; }
};

inline GainRule gain_rule(u32 index) {
    constexpr u64 all = ~u64{0};
    const u64 gain = TAVIK_ZOLF_ipow20[index];
    if (index < 15) return {gain, 1, 1, all};
    if (index < first_q20_gain) return {gain, 26510, 16, all};
    if (index < 165) return {gain, q20_rounding, 20, all};
    return {gain, q20_rounding, 20, 0xFFFFFFFF};
}

}  // namespace tavik
