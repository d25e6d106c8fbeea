// Temporal noise shaping: decision, record and filter.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "tavik.h"
#include "tools/exact_prediction.h"

namespace {

constexpr int hz_48000 = 3;
constexpr std::uint32_t band_count = 49;
constexpr std::uint32_t coded_band_count = 46;
constexpr std::size_t start = 196;  // lines of bands 24 to 39
constexpr std::size_t end = 672;

using Spectrum = std::vector<std::int32_t>;

// Where there is nothing to shape, the record stays as it was.
TavikTnsData shape(Spectrum &spectrum) {
    TavikTnsData tns{0, 11, 12, 13, {14}};
    TAVIK_TemporalNoiseShaping(&tns, spectrum.data(), hz_48000, band_count, coded_band_count);
    EXPECT_TRUE(tns.tns_data_present == 1 || (tns.length == 11 && tns.coef[0] == 14));
    return tns;
}

Spectrum decaying_tone() {
    Spectrum x(1024);
    for (std::size_t j = 0; j < x.size(); ++j) {
        const auto t = static_cast<double>(j);
        x[j] = static_cast<std::int32_t>(std::trunc((1 << 20) * std::pow(0.995, t) * std::cos(0.3 * t)));
    }
    return x;
}

double energy(const Spectrum &x) {
    return std::accumulate(x.begin() + start, x.begin() + end, 0.0, [](double sum, double v) { return sum + v * v; });
}

// The filter of the quantized reflection coefficients in direct form, from lag 1 on: the standard's dequantization and
// step-up.
std::vector<double> direct_form(const TavikTnsData &tns) {
    std::vector<double> c;
    for (std::size_t m = 0; m < tns.order; ++m) {
        const double k = std::sin(tns.coef[m] * M_PI / (tns.coef[m] >= 0 ? 15 : 17));
        const std::vector<double> lower = c;
        for (std::size_t i = 0; i < m; ++i) c[i] += k * lower[m - 1 - i];
        c.push_back(k);
    }
    return c;
}

TEST(Tns, PredictableSpectrumIsFiltered) {
    const Spectrum before = decaying_tone();
    Spectrum x = before;
    const TavikTnsData tns = shape(x);
    EXPECT_EQ(tns.tns_data_present, 1u);
    EXPECT_EQ(tns.length, 25u);
    EXPECT_EQ(tns.order, 5u);
    EXPECT_EQ(tns.coef_compress, 0u);
    EXPECT_EQ(std::vector<int>(tns.coef, tns.coef + 12), (std::vector<int>{-7, 6, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_NEAR(energy(before) / energy(x), 100, 15);
    EXPECT_TRUE(std::equal(x.begin(), x.begin() + start, before.begin()));
    EXPECT_TRUE(std::equal(x.begin() + end, x.end(), before.begin() + end));

    // The decoder's side, in double precision: the all-pole filter.
    const std::vector<double> c = direct_form(tns);
    std::vector<double> decoded(x.begin() + start, x.begin() + end);
    for (std::size_t j = 0; j < decoded.size(); ++j) {
        for (std::size_t i = 1; i <= std::min<std::size_t>(tns.order, j); ++i) decoded[j] -= c[i - 1] * decoded[j - i];
        EXPECT_NEAR(decoded[j], before[start + j], 200) << j;
    }
}

// Extremes that no encoder state brings about must stay defined: the sanitizers watch here.
TEST(Tns, ExtremeSpectraAreSurvived) {
    std::mt19937 random(6);
    for (int trial = 0; trial < 200; ++trial) {
        Spectrum x(1024);
        const int shift = trial % 32;
        for (auto &v : x) v = static_cast<std::int32_t>(random()) >> shift;
        if (trial % 3 == 0) std::fill(x.begin(), x.end(), INT32_MIN);
        if (trial % 3 == 1) x = Spectrum(1024), x[start + static_cast<std::size_t>(trial)] = INT32_MIN >> shift;
        const TavikTnsData tns = shape(x);
        for (std::size_t i = 0; tns.tns_data_present == 1 && i < 12; ++i) {
            EXPECT_TRUE(tns.coef[i] >= -8 && tns.coef[i] <= 7);
        }
    }
}

// Every coefficient is the nearest to the exact one: truncated to 10 bits, and at the ends as far as 4 bits go.
void expect_nearest(const TavikTnsData &tns, const std::array<long double, 12> &reflection) {
    bool fits_three_bits = true;
    for (std::size_t i = 0; i < 12; ++i) {
        const auto k = static_cast<double>(reflection[i]);
        const double exact = std::clamp(std::asin(k) * (k >= 0 ? 15 : 17) / M_PI, -8.0, 7.0);
        EXPECT_NEAR(tns.coef[i], exact, 0.75) << i;
        EXPECT_TRUE(tns.coef[i] == 0 || i < tns.order) << "coefficient behind the last";
        if (tns.coef[i] < -4 || tns.coef[i] > 3) fits_three_bits = false;
    }
    EXPECT_NE(tns.coef[tns.order - 1], 0);
    EXPECT_EQ(tns.coef_compress, fits_three_bits ? 1u : 0u);
}

// Lines in the range of the filter are those of the direct form, all others as before.
void expect_filtered(const TavikTnsData &tns, const Spectrum &before, const Spectrum &after) {
    const std::vector<double> c = direct_form(tns);
    for (std::size_t k = 0; k < before.size(); ++k) {
        double sum = before[k], magnitudes = 0;
        for (std::size_t i = 1; k >= start && k < end && i <= c.size() && i <= k - start; ++i) {
            sum += c[i - 1] * before[k - i];
            magnitudes += std::abs(before[k - i]);
        }
        ASSERT_NEAR(after[k], sum, magnitudes == 0 ? 0 : 2 + 1e-5 * magnitudes) << k;
    }
}

// Decision, coefficients and filter against the recursion in floating point; not where a gain is so near to the limit,
// or an error so near to nothing, that the encoder's may differ.
TEST(Tns, DoesWhatPredictionSays) {
    std::mt19937 random(8);
    int present = 0;
    for (unsigned trial = 0; trial < 2000; ++trial) {
        const Spectrum before = tavik_test::random_lines(random, 1024, trial % 24 < 20 ? trial : 0);
        Spectrum x = before;
        std::array<double, 13> r{};
        for (std::size_t lag = 0; lag < 13; ++lag) {
            for (std::size_t i = start + lag; i < end; ++i) r[lag] += static_cast<double>(x[i]) * x[i - lag];
        }
        const auto [reflection, error] = tavik_test::predict_exactly(r);
        const TavikTnsData tns = shape(x);
        present += static_cast<int>(tns.tns_data_present);
        if (std::abs(error - 64.0L / 129) > 0.008L) {
            ASSERT_EQ(tns.tns_data_present, error < 64.0L / 129 ? 1u : 0u) << error;
        }
        if (tns.tns_data_present == 0) {
            ASSERT_EQ(x, before);
        } else {
            expect_filtered(tns, before, x);
            if (error > 1e-5L) expect_nearest(tns, reflection);
        }
    }
    EXPECT_GT(present, 500);
    EXPECT_LT(present, 1500);
}

TEST(Autocorrelation, MatchesTheSums) {
    std::vector<std::int32_t> x(40);
    std::iota(x.begin(), x.end(), -20);
    std::int64_t r[13];
    TAVIK_Autocorrelation(30, 5, x.data(), r);
    for (std::size_t lag = 0; lag < 13; ++lag) {
        std::int64_t sum = 0;
        for (std::size_t i = 0; i + lag < 30; ++i) sum += std::int64_t{x[5 + i]} * x[5 + i + lag];
        EXPECT_EQ(r[lag], sum) << lag;
    }
    TAVIK_Autocorrelation(3, 0, x.data(), r);
    EXPECT_EQ(r[2], 20 * 18);
    for (std::size_t lag = 3; lag < 13; ++lag) EXPECT_EQ(r[lag], 0);
}

}  // namespace
