// Kernels of temporal noise shaping: the bound on the prediction gain, and the twins.
#include "tools/linear_prediction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace {

using namespace tavik;

using LagSums = std::array<i64, tns_lags>;

// Lines of a random resonance, narrower as `trial` grows, or for each third trial of numbers without any order.
std::vector<i32> random_lines(std::mt19937 &random, std::size_t count, u32 trial) {
    std::vector<i32> x(count);
    std::uniform_real_distribution<double> unit(-1, 1);
    const double radius = trial % 3 == 2 ? 0 : std::abs(unit(random));
    const double turn = 2 * radius * std::cos(M_PI * unit(random));
    const double scale = std::ldexp(1, static_cast<int>(random() % 24) + 4);
    double last = 0, before = 0;
    for (i32 &line : x) {
        const double value = unit(random) + turn * last - radius * radius * before;
        line = static_cast<i32>(std::clamp(scale * value, -2147483648.0, 2147483647.0));
        before = std::exchange(last, value);
    }
    return x;
}

// Prediction error of order 12 in units of r[0], in floating point; 0 where r belongs to no signal.
long double exact_error(const LagSums &r) {
    std::array<long double, tns_lags> a{1};
    long double error = 1;
    for (std::size_t m = 1; m < tns_lags; ++m) {
        long double k = 0;
        for (std::size_t i = 0; i < m; ++i) k -= a[i] * (static_cast<long double>(r[m - i]) / r[0]) / error;
        if (!(std::abs(k) < 1)) return 0;
        const auto lower = a;
        for (std::size_t i = 1; i <= m; ++i) a[i] = lower[i] + k * lower[m - i];
        error *= 1 - k * k;
    }
    return error;
}

TEST(PredictionGainIsLow, IsSafeAndSettlesMostSignals) {
    std::mt19937 random(1);
    std::uint32_t low = 0, settled = 0;
    for (u32 trial = 0; trial < 6000; ++trial) {
        const std::vector<i32> x = random_lines(random, 40 + random() % 600, trial);
        LagSums r;
        portable::autocorrelation(x, r);
        const long double error = exact_error(r);
        const bool verdict = portable::prediction_gain_is_low(r);
        if (error < 0.562L) {
            EXPECT_FALSE(verdict) << error;
        }
        if (error > 0.563L) ++low, settled += verdict ? 1 : 0;
    }
    EXPECT_GT(low, 2000u);
    EXPECT_EQ(settled, low);
}

TEST(PredictionGainIsLow, SaysNothingOfNumbersThatBelongToNoSignal) {
    EXPECT_FALSE(portable::prediction_gain_is_low(LagSums{}));
    EXPECT_FALSE(portable::prediction_gain_is_low(LagSums{1, 0, 0, 0, 0, 2}));
    EXPECT_FALSE(portable::prediction_gain_is_low(LagSums{-1}));
    EXPECT_FALSE(portable::prediction_gain_is_low(LagSums{std::numeric_limits<i64>::min()}));
    EXPECT_TRUE(portable::prediction_gain_is_low(LagSums{1}));
    EXPECT_TRUE(portable::prediction_gain_is_low(LagSums{std::numeric_limits<i64>::max()}));
    std::mt19937_64 random(2);
    for (u32 trial = 0; trial < 20000; ++trial) {
        LagSums r;
        for (i64 &value : r) value = static_cast<i64>(random()) >> (random() % 6);
        if (portable::prediction_gain_is_low(r)) {
            EXPECT_GT(exact_error(r), 0.55L);
        }
    }
}

#if defined(__aarch64__)

constexpr i32 extremes[] = {std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max(), 0, -1, 1};

// Lines of any size, a few extreme ones among them, or nothing else.
std::vector<i32> any_lines(std::mt19937 &random, std::size_t count) {
    std::vector<i32> x(count);
    const u32 shift = random() % 32, rarity = random() % 4;
    for (i32 &line : x) {
        line = static_cast<i32>(random()) >> shift;
        if (rarity == 0 || (rarity == 1 && random() % 64 == 0)) line = extremes[random() % std::size(extremes)];
    }
    return x;
}

void expect_equal_lag_sums(std::span<const i32> x) {
    LagSums expected, r;
    portable::autocorrelation(x, expected);
    neon::autocorrelation(x, r);
    ASSERT_EQ(r, expected) << x.size();
}

TEST(LinearPredictionTwins, AreEqualAtEveryLength) {
    std::mt19937 random(3);
    for (std::size_t count = 0; count < 1024; count += count < 64 ? 1 : 1 + random() % 24) {
        for (u32 trial = 0; trial < 12; ++trial) {
            const std::vector<i32> memory = any_lines(random, count + 4);
            const auto x = std::span(memory).subspan(random() % 4, count);
            expect_equal_lag_sums(x);

            std::array<i32, tables::tns_max_order> c;
            for (i32 &value : c) value = static_cast<i32>(random()) >> (random() % 32);
            std::vector<i32> expected(x.begin(), x.end()), filtered = expected;
            portable::shaping_filter(expected, c);
            neon::shaping_filter(filtered, c);
            ASSERT_EQ(filtered, expected) << count;
        }
    }
}

// All products of one sign, with the energy on either side of the limit of 32-bit sums.
TEST(LinearPredictionTwins, AreEqualAtTheLimitOf32Bits) {
    for (const i32 value : {2047, 2048, 2049, -2048}) {
        for (const std::size_t count : {511u, 512u, 513u}) expect_equal_lag_sums(std::vector<i32>(count, value));
    }
    for (const i32 value : {46340, 46341}) expect_equal_lag_sums(std::vector<i32>{0, value, 0, 0, 1});
    expect_equal_lag_sums(std::vector<i32>(4, std::numeric_limits<i32>::min()));  // energy 2^64
}

TEST(LinearPredictionTwins, GiveTheSameVerdict) {
    std::mt19937 random(5);
    for (u32 trial = 0; trial < 20000; ++trial) {
        LagSums r;
        if (trial % 2 == 0) {
            portable::autocorrelation(random_lines(random, 100, trial), r);
        } else {
            for (i64 &value : r) value = static_cast<i64>(random() * (u64{1} << 32) + random()) >> (random() % 64);
        }
        ASSERT_EQ(neon::prediction_gain_is_low(r), portable::prediction_gain_is_low(r));
    }
}

#endif

}  // namespace
