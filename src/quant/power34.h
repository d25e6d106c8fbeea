// 3/4 power and quantizer gain: the two rules that turn a spectral magnitude into a quantized one.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "common/lanes.h"
#include "tables/pow34_table.h"
#include "tavik.h"

namespace tavik {

inline constexpr u32 max_pow34_magnitude = (1u << 23) - 1;

// 3/4 power of 8 a for a = 2^11 ... 2^23 - 1: with j doublings from the table's range, the table's power of 8 a / 2^j
// times 2^(3 j / 4).
inline u32 large_pow34(u32 a) {
    const auto j = static_cast<u32>(std::bit_width(a)) - 12;
    const u32 power_q11 = tables::pow34_q11[(a << 3 >> j) - tables::pow34_table_begin + tables::pow34_own_entries];
    const u32 dropped = tables::pow34_dropped_bits[j];
    return ((power_q11 >> dropped) * tables::pow34_scale[j]) >> (15 - dropped);
}

// About floor((8 a)^(3/4)): exactly the largest integer below it for 0 < a < 4096, within 0.6 % above. A magnitude of
// 2^23 or more counts as 2^23 - 1. 0, or 4 ... 741381.
inline u32 pow34(u32 a) {
    return a < tables::small_pow34_entries ? tables::small_pow34[a] : large_pow34(std::min(a, max_pow34_magnitude));
}

// The same in lanes, for magnitudes below 2^23. The table holds the powers of small magnitudes too, in the same Q
// format; they have j = 0 like those up to 4096, and of both indices below theirs is the larger.
template <u32 N>
inline U32<N> pow34_in_lanes(U32<N> a) {
    constexpr u32 first_index = tables::pow34_table_begin - tables::pow34_own_entries;
    const auto all = [](u32 value) { return U32<N>::all(value); };
    const U32<N> j = all(32 - 12) - min(leading_zeros(a), all(32 - 12));
    const U32<N> n = (a << 3) >> j;
    const I32<N> small_index = min(a, all(tables::pow34_own_entries - 1)).template as<i32>();
    const I32<N> index = max(small_index, (n - all(first_index)).template as<i32>());
    const U32<N> power_q11 = look_up(tables::pow34_q11.data(), index.template as<u32>());
    // A word is looked up byte by byte. Its upper bytes find entry 0, which is 0; in the scale's low bytes, where it is
    // not, they point past the table.
    const U32<N> dropped = look_up_bytes(tables::pow34_dropped_bits, j);
    const U32<N> j_alone = j | all(0xFFFFFF00);
    const U32<N> scale =
        look_up_bytes(tables::pow34_scale_low, j_alone) | look_up_bytes(tables::pow34_scale_high, j_alone << 8);
    return ((power_q11 >> dropped) * scale) >> (all(15) - dropped);
}

// The largest of f(values), a multiple of 4 of them.
template <u32 N, typename T, typename F>
inline u32 largest_of(const T *values, u32 count, F f) {
    U32<N> most{};
    for_each_vector<N>(
        count, [&](auto load, const T *at) { most = max(most, f(load(at))); }, values);
    return largest_lane(most);
}

template <u32 N>
inline U32<N> magnitudes(I32<N> x) {
    return abs(x).template as<u32>();
}

// out[k] = (8 |x[k]|)^(3/4), as pow34() has it, of a band: a multiple of 4 lines. Returns the largest. Most bands have
// small lines only, which take one look-up each.
template <u32 N>
inline u32 raise_to_three_quarters(const i32 *x, u32 count, u32 *out) {
    constexpr u32 lanes = std::min(N, 4u);
    const u32 magnitude_of_band = largest_of<N>(x, count, [](auto vector) { return magnitudes(vector); });
    if (magnitude_of_band < tables::small_pow34_entries) {
        for_each_vector<lanes>(
            count,
            [](auto load, const i32 *lines, u32 *powers) {
                store_looked_up(powers, tables::small_pow34.data(), magnitudes(load(lines)));
            },
            x, out);
        return tables::small_pow34[magnitude_of_band];
    }
    U32<lanes> most{};
    for (const i32 *const end = x + count; x != end; x += lanes, out += lanes) {
        const U32<lanes> a = min(magnitudes(I32<lanes>::load(x)), U32<lanes>::all(max_pow34_magnitude));
        U32<lanes> power{};
        if constexpr (normalises_in_lanes && lanes > 1) {
            power = pow34_in_lanes(a);
        } else {
            power = lane_by_lane<u32, lanes>([=](u32 lane) { return pow34(a[lane]); });
        }
        most = max(most, power);
        power.store(out);
    }
    return largest_lane(most);
}

// Of a multiple of 4 values.
template <u32 N>
inline u32 largest_value(std::span<const u32> values) {
    return largest_of<N>(values.data(), static_cast<u32>(values.size()), [](auto vector) { return vector; });
}

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
