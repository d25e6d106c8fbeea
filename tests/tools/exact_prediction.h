// Linear prediction in floating point, and lines to predict.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace tavik_test {

struct ExactPrediction {
    std::array<long double, 12> reflection;
    long double error;  // of order 12 in units of r[0]; 0 where r belongs to no signal
};

// Levinson-Durbin recursion on an autocorrelation of 13 lags.
template <typename T>
ExactPrediction predict_exactly(const std::array<T, 13> &r) {
    ExactPrediction prediction{{}, 1};
    std::array<long double, 13> a{1};
    for (std::size_t m = 1; m <= 12; ++m) {
        long double k = 0;
        for (std::size_t i = 0; i < m; ++i) {
            k -= a[i] * (static_cast<long double>(r[m - i]) / static_cast<long double>(r[0])) / prediction.error;
        }
        if (!(std::abs(k) < 1)) return {};
        const auto lower = a;
        for (std::size_t i = 1; i <= m; ++i) a[i] = lower[i] + k * lower[m - i];
        prediction.reflection[m - 1] = k;
        prediction.error *= 1 - k * k;
    }
    return prediction;
}

// Lines of a random resonance of any sharpness, or for each third trial numbers without any order, of levels up to
// 2^(trial % 24 + 4).
inline std::vector<std::int32_t> random_lines(std::mt19937 &random, std::size_t count, unsigned trial) {
    std::vector<std::int32_t> x(count);
    std::uniform_real_distribution<double> unit(-1, 1);
    const double radius = trial % 3 == 2 ? 0 : std::abs(unit(random));
    const double turn = 2 * radius * std::cos(M_PI * unit(random));
    const double scale = std::ldexp(1, static_cast<int>(trial % 24) + 4);
    double last = 0, before = 0;
    for (std::int32_t &line : x) {
        const double value = unit(random) + turn * last - radius * radius * before;
        line = static_cast<std::int32_t>(std::clamp(scale * value, -2147483648.0, 2147483647.0));
        before = std::exchange(last, value);
    }
    return x;
}

}  // namespace tavik_test
