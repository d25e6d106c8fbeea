// Temporal noise shaping: decision, record and filter.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "quant/fixed_point.h"
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

// The whole tool as it is defined, without any of its short cuts. Sums wrap at 64 bits.
namespace definition {

using namespace tavik;

i64 q47_mul(i64 a, i64 b) {
    const i32 exponent_a = q47_exponent(a), exponent_b = q47_exponent(b);
    const i64 x = norm_shift(a, exponent_a), y = norm_shift(b, exponent_b);
    const i64 high_x = x >> 24, high_y = y >> 24;
    const i64 product = 2 * high_x * high_y + (((y & 0xFFFFFF) * high_x) >> 23) + (((x & 0xFFFFFF) * high_y) >> 23);
    return norm_shift(product, -(exponent_a + exponent_b));
}

i64 q47_div(i64 a, i64 b, i32 q) {
    const i32 exponent_a = q47_exponent(a), exponent_b = q47_exponent(b);
    return norm_shift(norm_shift(a, exponent_a + 16) / norm_shift(b, exponent_b - 16), exponent_b - exponent_a + q - 8);
}

// Reflection coefficients in Q23, and whether the filter pays.
bool predict(std::array<i64, 13> r, std::array<i32, 12> &reflection_q23) {
    i32 shift = 47;
    for (const i64 value : r) shift = std::min(shift, q47_exponent(value));
    for (i64 &value : r) value = norm_shift(value, shift);
    std::array<i64, 13> a{};  // from index 1
    i64 error = r[0];
    for (std::size_t m = 1; m <= 12; ++m) {
        i64 k = r[m];
        for (std::size_t i = 1; i < m; ++i) k = wrap_add(k, q47_mul(a[i], r[m - i]));
        k = wrap_neg(k);
        if (k != 0 && error != 0) k = q47_div(k, error, 23);
        k = std::clamp(k, 1 - (i64{1} << 47), (i64{1} << 47) - 1);
        reflection_q23[m - 1] = static_cast<i32>(k >> 24);
        const auto lower = a;
        for (std::size_t i = 1; i < m; ++i) a[i] = wrap_add(lower[i], q47_mul(k, lower[m - i]));
        a[m] = k;
        error = wrap_sub(error, q47_mul(error, q47_mul(k, k)));
    }
    return (error != 0 ? q47_div(r[0], error, 6) : r[0]) >> 24 > 128;
}

// The filter in Q24 from quantized coefficients.
std::array<i32, 12> direct_form(const TavikTnsData &tns) {
    std::array<i64, 13> b{};
    for (std::size_t m = 1; m <= tns.order; ++m) {
        const i32 index = tns.coef[m - 1];
        const i64 k = index >= 0 ? TAVIK_sin_table_p[index] : TAVIK_sin_table_m[-index];
        const auto lower = b;
        for (std::size_t i = 1; i < m; ++i) {
            b[i] = wrap_add(lower[i], 2 * k * static_cast<i32>(lower[m - i] >> 24));
        }
        b[m] = k << 22;
    }
    std::array<i32, 12> c{};
    for (std::size_t i = 0; i < tns.order; ++i) c[i] = static_cast<i32>(b[i + 1] >> 21);
    return c;
}

TavikTnsData shape(Spectrum &spectrum) {
    TavikTnsData tns{};
    const Spectrum x(spectrum.begin() + start, spectrum.begin() + end);
    std::array<i64, 13> r{};
    for (std::size_t lag = 0; lag < 13; ++lag) {
        for (std::size_t i = lag; i < x.size(); ++i) r[lag] = wrap_add(r[lag], i64{x[i]} * x[i - lag]);
    }
    std::array<i32, 12> reflection_q23{};
    if (r[0] == 0 || !predict(r, reflection_q23)) return tns;
    tns.tns_data_present = 1;
    tns.length = 25;
    tns.coef_compress = 1;
    for (std::size_t i = 0; i < 12; ++i) {
        const u32 sine = std::min(magnitude(reflection_q23[i]) >> 13, 1023u);
        tns.coef[i] = reflection_q23[i] >= 0 ? TAVIK_asinf_index_p[sine] : TAVIK_asinf_index_m[sine];
        if (tns.coef[i] != 0) tns.order = static_cast<u32>(i + 1);
        if (tns.coef[i] < -4 || tns.coef[i] > 3) tns.coef_compress = 0;
    }
    const std::array<i32, 12> c = direct_form(tns);
    for (std::size_t j = 0; j < x.size(); ++j) {
        i64 sum = 0;
        for (std::size_t i = 1; i <= std::min<std::size_t>(12, j); ++i) sum = wrap_add(sum, i64{c[i - 1]} * x[j - i]);
        spectrum[start + j] = wrap_add(x[j], static_cast<i32>(sum >> 24));
    }
    return tns;
}

}  // namespace definition

// Resonances of any sharpness and level, with sums that wrap among the loudest, and numbers without order.
void expect_as_defined(const Spectrum &spectrum, int trial) {
    Spectrum x = spectrum;
    Spectrum expected = x;
    const TavikTnsData tns_expected = definition::shape(expected);
    const TavikTnsData tns = shape(x);
    ASSERT_EQ(x, expected) << trial;
    ASSERT_EQ(tns.tns_data_present, tns_expected.tns_data_present);
    ASSERT_EQ(tns.order, tns_expected.order);
    ASSERT_EQ(tns.length, tns_expected.length);
    ASSERT_EQ(tns.coef_compress, tns_expected.coef_compress);
    ASSERT_TRUE(std::equal(tns.coef, tns.coef + 12, tns_expected.coef));
}

TEST(Tns, DoesWhatItsDefinitionSays) {
    std::mt19937 random(8);
    std::uniform_real_distribution<double> unit(-1, 1);
    int present = 0;
    for (int trial = 0; trial < 2000; ++trial) {
        Spectrum x(1024);
        const double radius = trial % 4 == 0 ? 0 : std::abs(unit(random)), angle = M_PI * unit(random);
        const double scale = std::ldexp(1, trial % 32);
        double last = 0, before = 0;
        for (auto &line : x) {
            const double value = unit(random) + 2 * radius * std::cos(angle) * last - radius * radius * before;
            line = static_cast<std::int32_t>(std::clamp(scale * value, -2147483648.0, 2147483647.0));
            before = std::exchange(last, value);
        }
        expect_as_defined(x, trial);
        present += static_cast<int>(shape(x).tns_data_present);
    }
    EXPECT_GT(present, 500);
    EXPECT_LT(present, 1500);
}

// Lines of -1, 0 and 1 now and then: some lag sums are 0, the others a few bits.
TEST(Tns, DoesWhatItsDefinitionSaysOfTinySpectra) {
    std::mt19937 random(6);
    for (int trial = 0; trial < 4000; ++trial) {
        Spectrum x(1024);
        for (auto &line : x)
            line = random() % (1 + static_cast<unsigned>(trial) % 40) == 0 ? static_cast<std::int32_t>(random() % 3) - 1
                                                                           : 0;
        expect_as_defined(x, trial);
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
