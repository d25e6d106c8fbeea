#include "tools/linear_prediction.h"

#include <algorithm>

namespace tavik::portable {
namespace {

using tables::tns_max_order;

// The sums of the lags First ... First + Count - 1: as many at once as fit the registers of a 64-bit machine. 64-bit
// products one by one are faster on x86-64 than vectors of them, or of 16-bit ones where the lines allow it.
template <std::size_t First, std::size_t Count>
void sum_lags(std::span<const i32> x, std::span<i64, tns_lags> r) {
    constexpr std::size_t head = First + Count - 1;  // lines that lack some of the lags
    std::array<i64, Count> sums{};
    const auto add = [&](std::size_t i, std::size_t lags) {
        for (std::size_t k = 0; k < lags; ++k) sums[k] = wrap_add(sums[k], static_cast<i64>(x[i]) * x[i - First - k]);
    };
    for (std::size_t i = First; i < std::min(head, x.size()); ++i) add(i, i - First + 1);
    for (std::size_t i = head; i < x.size(); ++i) add(i, Count);
    for (std::size_t k = 0; k < Count; ++k) r[First + k] = sums[k];
}

}  // namespace

void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r) {
    sum_lags<0, 7>(x, r);
    sum_lags<7, 6>(x, r);
}

bool prediction_gain_is_low(std::span<const i64, tns_lags> r) {
    u64 magnitudes = 0;
    for (const i64 value : r) magnitudes |= magnitude(value);
    const i32 shift = gain_bound::normal_shift(magnitudes);
    std::array<i32, tns_lags> u{};
    std::array<i32, tns_lags> v{};
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
