#include "tools/linear_prediction.h"

#include <algorithm>

namespace tavik::portable {
namespace {

using tables::tns_max_order;

// Adds the products of line i with those up to 12 below it.
inline void add_products(const i32 *x, std::size_t lags, std::array<i64, tns_lags> &sums) {
    for (std::size_t lag = 0; lag < lags; ++lag) sums[lag] = wrap_add(sums[lag], i64{*x} * *(x - lag));
}

// Any lines.
void sum_wide_products(std::span<const i32> x, std::array<i64, tns_lags> &sums) {
    const std::size_t head = std::min<std::size_t>(x.size(), tns_max_order);
    for (std::size_t i = 0; i < head; ++i) add_products(&x[i], i + 1, sums);
    for (std::size_t i = head; i < x.size(); ++i) add_products(&x[i], tns_lags, sums);
}

// Lines of 16 bits whose products add up to 31 bits, block by block with the lines below it.
void sum_narrow_products(std::span<const i32> x, std::array<i64, tns_lags> &sums) {
    constexpr std::size_t block = 64;
    std::array<i16, tns_max_order + block> lines{};
    i16 *const begin = lines.data() + tns_max_order;
    for (std::size_t first = 0; first < x.size(); first += block) {
        const std::size_t count = std::min(block, x.size() - first);
        for (std::size_t i = 0; i < count; ++i) begin[i] = static_cast<i16>(x[first + i]);
        for (std::size_t i = count; i < block; ++i) begin[i] = 0;
        for (std::size_t lag = 0; lag < tns_lags; ++lag) {
            i32 sum = 0;
            for (std::size_t i = 0; i < block; ++i) sum += begin[i] * (begin - lag)[i];
            sums[lag] += sum;
        }
        std::copy(lines.end() - tns_max_order, lines.end(), lines.begin());
    }
}

struct Size {
    u32 magnitudes;  // union of their bits
    u64 energy;      // modulo 2^64
};

Size size_of(std::span<const i32> x) {
    Size size{0, 0};
    for (const i32 value : x) {
        const u32 a = magnitude(value);
        size.magnitudes |= a;
        size.energy += u64{a} * a;
    }
    return size;
}

}  // namespace

// Any sum of products of lines with lines a lag below is at most the energy, by the Cauchy-Schwarz inequality.
void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) {
    std::array<i64, tns_lags> sums{};
    const Size size = size_of(x);
    if (size.magnitudes >> 15 == 0 && size.energy >> 31 == 0) {
        sum_narrow_products(x, sums);
    } else {
        sum_wide_products(x, sums);
    }
    for (std::size_t lag = 0; lag < tns_lags; ++lag) r[lag] = sums[lag];
}

bool prediction_gain_is_low(std::span<const i64, tns_lags> r) {
    u64 magnitudes = 0;
    for (const i64 value : r) magnitudes |= magnitude(value);
    const i32 shift = gain_bound::normal_shift(magnitudes);
    std::array<i32, tns_lags> u;
    std::array<i32, tns_lags> v;
    for (std::size_t i = 0; i < tns_lags; ++i) u[i] = v[i] = static_cast<i32>(norm_shift(r[i], shift));

    const i32 limit = gain_bound::error_limit(v[0]);
    if (v[0] >> (gain_bound::value_bits - 1) != 1) return false;  // no autocorrelation: r[0] is not the largest
    for (std::size_t m = 1; m < tns_lags; ++m) {
        if (wrap_abs(u[m]) >= v[0]) return false;
        const i64 k = gain_bound::reflection_q31(u[m], v[0]);
        for (std::size_t i = m; i < tns_lags; ++i) {
            const i32 from_u = u[i];
            const i32 from_v = v[i - m];
            u[i] = wrap_add(from_u, static_cast<i32>((k * from_v + (1 << 30)) >> 31));
            v[i - m] = wrap_add(from_v, static_cast<i32>((k * from_u + (1 << 30)) >> 31));
        }
        if (v[0] <= limit) return false;
    }
    return true;
}

// From the top down, in place.
void shaping_filter(std::span<i32> x, std::span<const i32, tns_max_order> c_q24) {
    for (std::size_t j = x.size(); j-- > 0;) {
        i64 sum = 0;
        const std::size_t taps = std::min<std::size_t>(tns_max_order, j);
        for (std::size_t i = 1; i <= taps; ++i) sum = wrap_add(sum, i64{c_q24[i - 1]} * x[j - i]);
        x[j] = wrap_add(x[j], static_cast<i32>(sum >> 24));
    }
}

}  // namespace tavik::portable
