// The FFT against the defining sum in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

#include "tavik.h"

namespace {

using Complex = std::complex<double>;

struct Signal {
    std::vector<std::int32_t> re, im;
    explicit Signal(std::size_t n) : re(n), im(n) {}
    int size() const { return static_cast<int>(re.size()); }
    void transform() { TAVIK_ZOLF_srfft(re.data(), im.data(), size()); }
};

// Largest distance of a coefficient's real or imaginary part from the exact transform of `input`.
double largest_error(const Signal &input) {
    Signal output = input;
    output.transform();
    const std::size_t n = input.re.size();
    double error = 0;
    for (std::size_t k = 0; k < n; ++k) {
        Complex sum = 0;
        for (std::size_t p = 0; p < n; ++p) {
            const double angle = -2 * std::numbers::pi * static_cast<double>(p * k % n) / static_cast<double>(n);
            sum += Complex(input.re[p], input.im[p]) * std::polar(1.0, angle);
        }
        error = std::max({error, std::abs(output.re[k] - sum.real()), std::abs(output.im[k] - sum.imag())});
    }
    return error;
}

class Fft : public testing::TestWithParam<std::size_t> {};

TEST_P(Fft, MatchesTheSumOnRandomInput) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> value(-(1 << 20), 1 << 20);
    for (int trial = 0; trial < 4; ++trial) {
        Signal input(GetParam());
        for (auto &x : input.re) x = value(random);
        for (auto &x : input.im) x = value(random);
        EXPECT_LE(largest_error(input), GetParam() == 512 ? 200 : 25);
    }
}

TEST_P(Fft, MatchesTheSumOnImpulses) {
    for (std::size_t at = 0; at < GetParam(); at += 37) {
        Signal input(GetParam());
        input.re[at] = 1 << 20;
        EXPECT_LE(largest_error(input), 7) << "impulse at " << at;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, Fft, testing::Values(512, 64));

TEST(FftSizes, OtherSizesAreLeftAlone) {
    for (const int n : {0, -1, 63, 128, 256, 1024}) {
        Signal x(1024);
        for (std::size_t i = 0; i < 1024; ++i) x.re[i] = x.im[i] = static_cast<std::int32_t>(i);
        const Signal before = x;
        TAVIK_ZOLF_srfft(x.re.data(), x.im.data(), n);
        EXPECT_EQ(x.re, before.re) << n;
        EXPECT_EQ(x.im, before.im) << n;
    }
}

}  // namespace
