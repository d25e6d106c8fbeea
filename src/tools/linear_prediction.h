// Kernels of temporal noise shaping: the lag sums of a range of lines, a quick verdict on the prediction gain, and the
// filter.
#pragma once

#include <array>
#include <span>

#include "common/fixed_point.h"
#include "interface/kernels.h"
#include "tables/tns_tables.h"

namespace tavik {

inline constexpr u32 tns_lags = tables::tns_max_order + 1;

namespace portable {

// r[l] = sum over i < x.size() - l of x[i] x[i + l], modulo 2^64; 0 for a lag without terms.
void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r);

// True only if linear prediction of order 12 leaves more than 0.54 of the energy r[0]: the verdict on most signals, for
// a tenth of the work that the Q47 recursion takes. False says nothing. (That recursion finds the same only where it is
// accurate: with normalised sums.)
bool prediction_gain_is_low(std::span<const i64, tns_lags> r);

// x[j] += sum of c[i - 1] x[j - i] / 2^24, i = 1 ... 12, over the unfiltered x, which is 0 before the range.
void shaping_filter(std::span<i32> x, std::span<const i32, tables::tns_max_order> c_q24);

}  // namespace portable

#if defined(__aarch64__)
namespace neon {
void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r);
bool prediction_gain_is_low(std::span<const i64, tns_lags> r);
void shaping_filter(std::span<i32> x, std::span<const i32, tables::tns_max_order> c_q24);
}  // namespace neon

#if defined(TAVIK_CHECK_KERNELS)
namespace checked {

inline void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) {
    std::array<i64, tns_lags> expected{};
    portable::autocorrelation(x, expected);
    neon::autocorrelation(x, r);
    for (u32 lag = 0; lag < tns_lags; ++lag) require_equal(r[lag] == expected[lag]);
}

inline bool prediction_gain_is_low(std::span<const i64, tns_lags> r) {
    const bool is_low = neon::prediction_gain_is_low(r);
    require_equal(is_low == portable::prediction_gain_is_low(r));
    return is_low;
}

inline void shaping_filter(std::span<i32> x, std::span<const i32, tables::tns_max_order> c_q24) {
    std::array<i32, 1024> expected{};
    for (std::size_t j = 0; j < x.size(); ++j) expected[j] = x[j];
    portable::shaping_filter(std::span(expected).first(x.size()), c_q24);
    neon::shaping_filter(x, c_q24);
    for (std::size_t j = 0; j < x.size(); ++j) require_equal(x[j] == expected[j]);
}

}  // namespace checked
#endif
#endif

// The recursion behind prediction_gain_is_low, in 32 bits. Schur's algorithm makes the reflection coefficients of a
// normalised autocorrelation without the predictor: of two rows u = r[1 ... 12] and v = r[0 ... 11], step m takes
// k = -u[0] / v[0], replaces u by u + k v and v by v + k u, and drops the first of u and the last of v; v[0] is then
// the error of order m. All values stay defined for any r, and the verdict true is safe:
//
//   Headroom: values start below 2^27. While the error is above 9/16 of r[0], the product of all (1 - k^2) is, which
//   bounds that of all (1 + |k|), and so the growth of any value and the 1-norm of any predictor, by 10.5.
//   Error: a step rounds by less than 0.6 units of r[0] / 2^26 or below. Traced back through the steps, by at most
//   1 / (1 - |k|) each, 96 in sum, the rounded values are exact ones of a positive definite matrix that differs from
//   the given one by at most 13 x 4 x 96 x 0.6 such units. That changes the error of a predictor of 1-norm 2 x 10.5 by
//   less than 0.02 of r[0].
namespace gain_bound {

inline constexpr i32 value_bits = 27;

// What the error of every order has to exceed.
constexpr i32 error_limit(i32 energy) { return (energy >> 4) * 9; }

// k in Q31 for |u| < v.
constexpr i32 reflection_q31(i32 u, i32 v) { return static_cast<i32>(-(i64{u} * (i64{1} << 31)) / v); }

// The shift that brings the largest magnitude, of which `magnitudes` is the union of bits, below 2^27.
constexpr i32 normal_shift(u64 magnitudes) { return value_bits - static_cast<i32>(std::bit_width(magnitudes)); }

}  // namespace gain_bound

}  // namespace tavik
