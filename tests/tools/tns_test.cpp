// Temporal noise shaping: decision, record and filter.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "tavik.h"

namespace {

constexpr int hz_48000 = 3;
constexpr std::uint32_t band_count = 49;
constexpr std::uint32_t coded_band_count = 46;
constexpr std::size_t start = 196;  // lines of bands 24 to 39
constexpr std::size_t end = 672;

using Spectrum = std::vector<std::int32_t>;

TavikTnsData shape(Spectrum &spectrum) {
    TavikTnsData tns{};
    TAVIK_TemporalNoiseShaping(&tns, spectrum.data(), hz_48000, band_count, coded_band_count);
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

    // The decoder's side, in double precision: the standard's dequantization, step-up to direct form, all-pole filter.
    std::vector<double> a(tns.order + 1);
    a[0] = 1;
    for (std::size_t m = 1; m <= tns.order; ++m) {
        const int index = tns.coef[m - 1];
        const double k = std::sin(index * M_PI / (index >= 0 ? 15 : 17));
        const std::vector<double> lower = a;
        for (std::size_t i = 1; i < m; ++i) a[i] = lower[i] + k * lower[m - i];
        a[m] = k;
    }
    std::vector<double> decoded(x.begin() + start, x.begin() + end);
    for (std::size_t j = 0; j < decoded.size(); ++j) {
        for (std::size_t i = 1; i <= std::min<std::size_t>(tns.order, j); ++i) decoded[j] -= a[i] * decoded[j - i];
        EXPECT_NEAR(decoded[j], before[start + j], 200) << j;
    }
}

TEST(Tns, FlatOrSilentSpectrumIsLeftAlone) {
    std::mt19937 random(4);
    std::uniform_int_distribution<std::int32_t> value(-100000, 100000);
    Spectrum white(1024), silent(1024);
    for (auto &x : white) x = value(random);
    for (Spectrum *spectrum : {&white, &silent}) {
        const Spectrum before = *spectrum;
        TavikTnsData tns{0, 11, 12, 13, {14}};
        TAVIK_TemporalNoiseShaping(&tns, spectrum->data(), hz_48000, band_count, coded_band_count);
        EXPECT_EQ(*spectrum, before);
        EXPECT_EQ(tns.tns_data_present, 0u);
        EXPECT_EQ(tns.length, 11u);
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
        for (const std::int32_t coef : tns.coef) {
            EXPECT_GE(coef, -8);
            EXPECT_LE(coef, 7);
        }
    }
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
