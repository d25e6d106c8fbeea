// The FFT against the defining sum in double precision.
#include "filterbank/fft.h"

#include <gtest/gtest.h>

#include <array>
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

TEST_P(Fft, ConstantGivesExactlyOneLine) {
    Signal x(GetParam());
    std::fill(x.re.begin(), x.re.end(), 12345);
    std::fill(x.im.begin(), x.im.end(), -777);
    x.transform();
    Signal expected(GetParam());
    expected.re[0] = 12345 * x.size();
    expected.im[0] = -777 * x.size();
    EXPECT_EQ(x.re, expected.re);
    EXPECT_EQ(x.im, expected.im);
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

#if defined(__aarch64__)

// The vectors' result in the order of TAVIK_ZOLF_srfft.
Signal transformed_in_quads(const Signal &input) {
    std::array<std::int32_t, tavik::neon::fft_512_words> z, out;
    for (unsigned n = 0; n < 512; ++n) {
        z[tavik::neon::quad_re(n)] = input.re[n];
        z[tavik::neon::quad_im(n)] = input.im[n];
    }
    tavik::neon::fft_512(z, out);
    Signal output(512);
    for (unsigned n = 0; n < 512; ++n) {
        output.re[n] = out[tavik::neon::quad_re(n)];
        output.im[n] = out[tavik::neon::quad_im(n)];
    }
    return output;
}

void expect_equal_twins(const Signal &input) {
    Signal expected = input;
    expected.transform();
    const Signal output = transformed_in_quads(input);
    EXPECT_EQ(output.re, expected.re);
    EXPECT_EQ(output.im, expected.im);
}

TEST(FftNeon, EqualsThePortableTransformUpToTheHeadroom) {
    std::mt19937 random(5);
    for (int bits = 0; bits <= 20; ++bits) {
        // At most 2^19.5 in magnitude, so that 512 of one phase stay below 2^29 in re + im.
        std::uniform_int_distribution<std::int32_t> value(-(1 << bits) * 7 / 10, (1 << bits) * 7 / 10);
        Signal input(512);
        for (auto &x : input.re) x = value(random);
        for (auto &x : input.im) x = value(random);
        expect_equal_twins(input);
    }
    // All the power in one output, also in those of the transforms of 8 and of 4.
    for (std::size_t k = 0; k < 512; k += 3) {
        Signal input(512);
        for (std::size_t n = 0; n < 512; ++n) {
            const Complex x =
                std::polar(0.99 * (1 << 19), 2 * std::numbers::pi * static_cast<double>(n * k % 512) / 512);
            input.re[n] = static_cast<std::int32_t>(x.real());
            input.im[n] = static_cast<std::int32_t>(x.imag());
        }
        expect_equal_twins(input);
    }
    for (std::size_t n = 0; n < 512; ++n) {
        Signal input(512);
        input.re[n] = 1 << 27;
        input.im[n] = -(1 << 27);
        expect_equal_twins(input);
    }
}

#endif

}  // namespace
