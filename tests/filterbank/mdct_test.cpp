// MDCT and filter bank against the defining sums in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "tavik.h"

namespace {

using std::numbers::pi;

double basis(std::size_t p, std::size_t k, std::size_t n) {
    const double n0 = (static_cast<double>(n) + 1) / 2;
    return std::cos(pi / static_cast<double>(n) * (static_cast<double>(p) + n0) * (static_cast<double>(k) + 0.5));
}

// gain x sum of x[p] cos(...) over 2n samples, for every k < n.
std::vector<double> transform_sum(const std::vector<double> &x, double gain) {
    const std::size_t n = x.size() / 2;
    std::vector<double> sums(n);
    for (std::size_t k = 0; k < n; ++k) {
        for (std::size_t p = 0; p < 2 * n; ++p) sums[k] += gain * x[p] * basis(p, k, n);
    }
    return sums;
}

// The truncations all point the same way, so that they add up in some lines: far fewer units on average than at worst.
void expect_near(const std::int32_t *actual, const std::vector<double> &expected, double worst, double rms) {
    double squares = 0;
    for (std::size_t k = 0; k < expected.size(); ++k) {
        ASSERT_NEAR(actual[k], expected[k], worst) << "line " << k;
        squares += std::pow(actual[k] - expected[k], 2);
    }
    EXPECT_LE(std::sqrt(squares / static_cast<double>(expected.size())), rms);
}

class Mdct : public testing::TestWithParam<std::size_t> {};

TEST_P(Mdct, MatchesTheSumAndKeepsTheUpperHalf) {
    const std::size_t n = GetParam();
    std::mt19937 random(2);
    std::uniform_int_distribution<std::int32_t> value(-(1 << 22), 1 << 22);
    std::vector<std::int32_t> buf(2 * n), scratch(n);
    for (auto &x : buf) x = value(random);
    const std::vector<std::int32_t> before = buf;
    TAVIK_MDCT_FAST(buf.data(), static_cast<std::uint32_t>(n), scratch.data());
    expect_near(buf.data(), transform_sum({before.begin(), before.end()}, 1.0 / 512), 24, 3);
    EXPECT_TRUE(std::equal(buf.begin() + static_cast<std::ptrdiff_t>(n), buf.end(),
                           before.begin() + static_cast<std::ptrdiff_t>(n)));
}

INSTANTIATE_TEST_SUITE_P(Sizes, Mdct, testing::Values(1024, 128));

TEST(Mdct, AnyOtherSizeWorksAsTheShortOne) {
    std::vector<std::int32_t> a(2048), scratch(1024);
    for (std::size_t p = 0; p < a.size(); ++p) a[p] = static_cast<std::int32_t>(p * p * 7919 % 100003);
    const std::vector<std::int32_t> block = a;
    TAVIK_MDCT_FAST(a.data(), 128, scratch.data());
    for (const std::uint32_t n : {0u, 512u, 2048u}) {
        std::vector<std::int32_t> b = block;
        TAVIK_MDCT_FAST(b.data(), n, scratch.data());
        EXPECT_EQ(a, b) << n;
    }
}

// ---- Windows -------------------------------------------------------------------------------------------------------

enum : int { only_long, long_start, eight_short, long_stop };

double rise(std::size_t p, std::size_t length) {
    return std::sin(pi * (static_cast<double>(p) + 0.5) / static_cast<double>(2 * length));
}

// Value at p < 1024 of the first half of a window that rises over a long or a short slope.
double first_half(std::size_t p, bool short_slope) {
    if (!short_slope) return rise(p, 1024);
    if (p < 448) return 0;
    return p < 576 ? rise(p - 448, 128) : 1;
}

double long_window(std::size_t p, int sequence) {
    return p < 1024 ? first_half(p, sequence == long_stop) : first_half(2047 - p, sequence == long_start);
}

using History = std::array<std::int32_t, 4096>;  // two channels

History random_history() {
    std::mt19937 random(3);
    std::uniform_int_distribution<std::int32_t> sample(-32768, 32767);
    History history;
    for (auto &x : history) x = sample(random);
    return history;
}

std::array<std::int32_t, 2048> run(const History &history, int sequence, int channel) {
    std::array<std::int32_t, 2048> out{};
    std::array<std::int32_t, 1024> scratch;
    TAVIK_FilterBank(history.data(), out.data(), sequence, scratch.data(), channel, 0);
    return out;
}

// Any samples; samples at the limits of their range, with all the power in one line.
std::vector<History> all_histories() {
    std::vector<History> histories = {random_history()};
    for (const std::size_t line : {0u, 1u, 255u, 511u, 512u, 1022u, 1023u}) {
        History &history = histories.emplace_back();
        for (std::size_t p = 0; p < 4096; ++p) history[p] = basis(p % 2048, line, 1024) < 0 ? -32768 : 32767;
    }
    return histories;
}

TEST(FilterBank, LongWindowsMatchTheWindowedSum) {
    for (const History &history : all_histories()) {
        for (const int sequence : {only_long, long_start, long_stop}) {
            const int channel = sequence;  // any but 0 is the second
            std::vector<double> x(2048);
            for (std::size_t p = 0; p < 2048; ++p) {
                x[p] = history[p + (channel != 0 ? 2048 : 0)] * long_window(p, sequence);
            }
            expect_near(run(history, sequence, channel).data(), transform_sum(x, 0.25), 20, 3);
        }
    }
}

TEST(FilterBank, ShortWindowsMatchTheWindowedSumsBlockByBlock) {
    const History history = random_history();
    const auto out = run(history, eight_short, 0);
    for (std::size_t w = 0; w < 8; ++w) {
        std::vector<double> x(256);
        for (std::size_t p = 0; p < 256; ++p) {
            x[p] = history[448 + 128 * w + p] * rise(p < 128 ? p : 255 - p, 128);
        }
        expect_near(&out[128 * w], transform_sum(x, 0.25), 20, 3);
    }
}

TEST(FilterBank, UnknownSequencesDoNothing) {
    for (const int sequence : {-1, 4}) {
        EXPECT_EQ(run(random_history(), sequence, 0), (std::array<std::int32_t, 2048>{}));
    }
}

TEST(LowPass, ClearsFromTheLimitOn) {
    for (const std::uint32_t limit : {0u, 864u, 1023u, 1024u, 5000u}) {
        std::vector<std::int32_t> spectrum(2048, 7);
        TAVIK_LowPass(spectrum.data(), limit);
        for (std::size_t k = 0; k < 2048; ++k) ASSERT_EQ(spectrum[k], k >= limit && k < 1024 ? 0 : 7) << k;
    }
}

}  // namespace
