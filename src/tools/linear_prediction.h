// Kernels of temporal noise shaping: the lag sums of a range of lines, a quick bound on the prediction gain, and the
// filter.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "common/lanes.h"
#include "tables/tns_tables.h"

namespace tavik {

inline constexpr u32 tns_lags = tables::tns_max_order + 1;

// A range of lines split for vectors of lines that read 12 lines below themselves: the lowest lines go after zeros in a
// buffer of their own, so many that the others come to whole blocks and find 12 lines below.
template <u32 Block>
class PaddedHead {
 public:
    explicit PaddedHead(std::span<const i32> x)
        : lines_(x.size() < order ? x.size() : order + (x.size() - order) % Block) {
        for (std::size_t i = 0; i < lines_; ++i) buffer_[size - lines_ + i] = x[i];
    }
    std::size_t lines() const { return lines_; }
    std::size_t blocks() const { return (lines_ + Block - 1) / Block; }
    i32 *end() { return buffer_.data() + size; }
    const i32 *end() const { return buffer_.data() + size; }
    const i32 *line_0() const { return buffer_.data() + size - lines_; }

 private:
    static constexpr std::size_t order = tables::tns_max_order;
    // Up to 12 + Block - 1 lines in whole blocks, and 12 below.
    static constexpr std::size_t size = order + (order + 2 * (Block - 1)) / Block * Block;
    std::size_t lines_;
    std::array<i32, size> buffer_{};
};

// How products of lines are summed in N lanes: in 64 bits, or in 32 where the caller knows that they suffice.
template <u32 N>
struct WideSum {
    static constexpr u32 lanes = N;
    static constexpr u32 first_lag = 0;
    WideTotal<N> value{};
    void add(I32<N> a, I32<N> b) { value.add_product(a, b); }
    i64 total() const { return value.total(); }
};
template <u32 N>
struct NarrowSum {
    static constexpr u32 lanes = N;
    static constexpr u32 first_lag = 1;
    I32<N> value{};
    void add(I32<N> a, I32<N> b) { value += a * b; }
    i64 total() const { return sum_of_lanes(value); }
};

// A range as PaddedHead splits it: the head, then the rest.
struct Segment {
    const i32 *lines;
    std::size_t blocks;
};
using Segments = std::array<Segment, 2>;

template <u32 Block>
inline Segments segments_of(std::span<const i32> x, const PaddedHead<Block> &head) {
    return {{{head.end() - head.blocks() * Block, head.blocks()},
             {x.data() + head.lines(), (x.size() - head.lines()) / Block}}};
}

template <typename Sum>
using LagSums = std::array<Sum, tns_lags - Sum::first_lag>;

// The partners of 2 N lines from p on in lags R, R + N ... : vectors N lines apart, from the largest lag up to p + N -
// R.
template <u32 R, u32 N>
inline constexpr u32 lags_from = (tns_lags - R + N - 1) / N;
template <u32 R, u32 N>
using Partners = std::array<I32<N>, lags_from<R, N> + 1>;

template <u32 R, u32 N>
inline void load_partners(const i32 *p, Partners<R, N> &x) {
    load_row(p + 2 * N - R - x.size() * N, x);
}

// Adds to the sums of these lags. Each vector serves two of them.
template <u32 R, typename Sum, u32 N>
inline void add_lags(LagSums<Sum> &sums, I32<N> low, I32<N> high, const Partners<R, N> &x) {
    constexpr u32 lags = lags_from<R, N>;
    unrolled<lags>([&](auto i) {
        constexpr u32 lag = R + i * N;
        if constexpr (lag >= Sum::first_lag) {
            sums[lag - Sum::first_lag].add(low, x[lags - 1 - i]);
            sums[lag - Sum::first_lag].add(high, x[lags - i]);
        }
    });
}

// r[l] = sum over i < x.size() - l of x[i] x[i + l], modulo 2^64, of the lags that Sum is for; 0 for a lag without
// terms.
template <typename Sum, u32 N = Sum::lanes>
[[gnu::flatten, gnu::noinline]] inline void sum_lags(std::span<const i32> x, std::span<i64, tns_lags> r) {
    const PaddedHead<2 * N> head(x);
    LagSums<Sum> totals{};
    for (const Segment &segment : segments_of(x, head)) {
        LagSums<Sum> sums = totals;  // in registers
        const i32 *p = segment.lines;
        for (std::size_t blocks = segment.blocks; blocks != 0; --blocks, p += 2 * N) {
            Partners<0, N> own{};
            load_partners<0, N>(p, own);
            const I32<N> low = own[own.size() - 2];
            const I32<N> high = own[own.size() - 1];
            add_lags<0, Sum, N>(sums, low, high, own);
            unrolled<N - 1>([&](auto i) {
                Partners<i + 1, N> partners{};
                load_partners<i + 1, N>(p, partners);
                add_lags<i + 1, Sum, N>(sums, low, high, partners);
            });
        }
        totals = sums;
    }
    for (u32 lag = Sum::first_lag; lag < tns_lags; ++lag) r[lag] = totals[lag - Sum::first_lag].total();
}

// The lag sums of lines below 2^24. Any sum of products of lines with lines a lag below is at most the energy, r[0], by
// the Cauchy-Schwarz inequality, and so is what any vector lane adds up. Most signals are so weak up there that 32 bits
// do.
template <u32 N>
inline void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) {
    WideTotal<N> energy{};
    const std::size_t in_vectors = x.size() / (2 * N) * (2 * N);
    for (std::size_t i = 0; i < in_vectors; i += 2 * N) {
        std::array<I32<N>, 2> lines{};
        load_row(&x[i], lines);
        for (const I32<N> line : lines) energy.add_product(line, line);
    }
    r[0] = energy.total();
    for (std::size_t i = in_vectors; i < x.size(); ++i) r[0] = wrap_add(r[0], i64{x[i]} * x[i]);
    if (r[0] >> 31 == 0) {
        sum_lags<NarrowSum<N>>(x, r);
    } else {
        sum_lags<WideSum<N>>(x, r);
    }
}

// prediction_gain_is_low() runs a recursion in 32 bits. Schur's algorithm makes the reflection coefficients of a
// normalised autocorrelation without the predictor: of two rows u = r[1 ... 12] and v = r[0 ... 11], step m takes
// k = -u[0] / v[0], replaces u by u + k v and v by v + k u, and drops the first of u and the last of v; v[0] is then
// the error of order m. All values stay defined for any r, and the answer true is safe:
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

// True only if linear prediction of order 12 leaves more than 0.54 of the energy r[0]: the answer for most signals, for
// a tenth of the work that the Q47 recursion takes. Conservative: false = undecided. (That recursion finds the same
// only where it is accurate: with normalised sums.) N = 1 or 4.
template <u32 N>
inline bool prediction_gain_is_low(std::span<const i64, tns_lags> r) {
    u64 magnitudes = 0;
    for (const i64 value : r) magnitudes |= magnitude(value);
    const i32 shift = gain_bound::normal_shift(magnitudes);
    std::array<i32, tns_lags> normal{};
    for (std::size_t i = 0; i < tns_lags; ++i) normal[i] = static_cast<i32>(norm_shift(r[i], shift));

    constexpr u32 vectors = tables::tns_max_order / N;
    std::array<I32<N>, vectors> u{};
    std::array<I32<N>, vectors> v{};
    for (u32 i = 0; i < vectors; ++i) {
        u[i] = I32<N>::load(&normal[N * i + 1]);
        v[i] = I32<N>::load(&normal[N * i]);
    }
    i32 error = v[0][0];
    const i32 limit = gain_bound::error_limit(error);
    if (error >> (gain_bound::value_bits - 1) != 1) return false;  // no autocorrelation: r[0] is not the largest
    for (u32 m = 1; m < tns_lags; ++m) {
        const i32 next = u[0][0];
        if (wrap_abs(next) >= error) return false;
        const auto k = I32<N>::all(gain_bound::reflection_q31(next, error));
        unrolled<vectors>([&](auto i) {
            const I32<N> from_u = u[i];
            u[i] += rounded_product_q31(v[i], k);
            v[i] += rounded_product_q31(from_u, k);
        });
        error = v[0][0];
        if (error <= limit) return false;
        unrolled<vectors>([&](auto i) { u[i] = without_first(u[i], u[i + 1 < vectors ? i + 1 : i]); });
    }
    return true;
}

// Filters lines from `end` downwards, `vectors` times N of them.
template <u32 N>
[[gnu::flatten]] inline void filter_lines(i32 *end, std::size_t vectors,
                                          std::span<const i32, tables::tns_max_order> c_q24) {
    std::array<I32<N>, tables::tns_max_order> c{};
    unrolled<tables::tns_max_order>([&](auto i) { c[i] = I32<N>::all(c_q24[i]); });
    for (i32 *p = end; vectors != 0; --vectors) {
        p -= N;
        WideLanes<N> sum{};
        unrolled<tables::tns_max_order>([&](auto i) { sum.add_product(I32<N>::load(p - 1 - i), c[i]); });
        (I32<N>::load(p) + sum.template shifted_down<24>()).store(p);
    }
}

// x[j] += sum of c[i - 1] x[j - i] / 2^24, i = 1 ... 12, over the unfiltered x, which is 0 before the range.
template <u32 N>
inline void shaping_filter(std::span<i32> x, std::span<const i32, tables::tns_max_order> c_q24) {
    PaddedHead<N> head(x);
    filter_lines<N>(x.data() + x.size(), (x.size() - head.lines()) / N, c_q24);
    filter_lines<N>(head.end(), head.blocks(), c_q24);
    for (std::size_t i = 0; i < head.lines(); ++i) x[i] = head.line_0()[i];
}

// All of them with the lanes of this machine; wide_autocorrelation() for lines of any size.
void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r);
void wide_autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r);
bool prediction_gain_is_low(std::span<const i64, tns_lags> r);
void shaping_filter(std::span<i32> x, std::span<const i32, tables::tns_max_order> c_q24);

}  // namespace tavik
