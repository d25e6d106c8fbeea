// Public tables against the standard's data and against the C library's mathematics.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <span>

#include "support/standard_tables.h"
#include "tavik.h"

namespace {

using namespace tavik_test;
using std::numbers::pi;

TEST(Tables, ScaleFactorBandsAreTheStandards) {
    for (unsigned index = 0; index < 12; ++index) {
        auto long_bands = standard_tables().bands(index, false);
        auto short_bands = standard_tables().bands(index, true);
        EXPECT_EQ(TAVIK_NumSwbLongWindow[index] + 1, long_bands.size());
        EXPECT_EQ(TAVIK_NumSwbShortWindow[index] + 1, short_bands.size());
        long_bands.resize(std::size(TAVIK_SwbOffsetLong[index]));  // zeros behind the last value
        short_bands.resize(std::size(TAVIK_SwbOffsetShort[index]));
        EXPECT_TRUE(std::equal(long_bands.begin(), long_bands.end(), TAVIK_SwbOffsetLong[index]));
        EXPECT_TRUE(std::equal(short_bands.begin(), short_bands.end(), TAVIK_SwbOffsetShort[index]));
    }
}

// Number of values that are not zero in tuple `index` of a codebook of magnitudes.
unsigned sign_bits(unsigned codebook, unsigned index) {
    const SpectralCodebook book = spectral_codebook(codebook);
    unsigned signs = 0;
    for (unsigned d = 0; d < book.dimension; ++d, index /= book.modulus) signs += index % book.modulus != 0 ? 1u : 0u;
    return signs;
}

TEST(Tables, HuffmanCodesAreTheStandardsWithSignBits) {
    using Table = std::span<const std::uint32_t>;
    const std::pair<Table, Table> tables[] = {
        {TAVIK_ZOLF_huff10, TAVIK_ZOLF_huff11},   {TAVIK_ZOLF_huff20, TAVIK_ZOLF_huff21},
        {TAVIK_ZOLF_huff30, TAVIK_ZOLF_huff31},   {TAVIK_ZOLF_huff40, TAVIK_ZOLF_huff41},
        {TAVIK_ZOLF_huff50, TAVIK_ZOLF_huff51},   {TAVIK_ZOLF_huff60, TAVIK_ZOLF_huff61},
        {TAVIK_ZOLF_huff70, TAVIK_ZOLF_huff71},   {TAVIK_ZOLF_huff80, TAVIK_ZOLF_huff81},
        {TAVIK_ZOLF_huff90, TAVIK_ZOLF_huff91},   {TAVIK_ZOLF_huff100, TAVIK_ZOLF_huff101},
        {TAVIK_ZOLF_huff110, TAVIK_ZOLF_huff111}, {TAVIK_ZOLF_huff120, TAVIK_ZOLF_huff121}};
    for (unsigned codebook = 1; codebook <= 12; ++codebook) {
        const auto &[lengths, codewords] = tables[codebook - 1];
        const auto &standard = standard_tables().code(codebook).codewords();
        ASSERT_EQ(lengths.size(), standard.size());
        ASSERT_EQ(codewords.size(), standard.size());
        const bool with_signs = codebook < 11 && spectral_codebook(codebook).lowest == 0;
        for (unsigned i = 0; i < standard.size(); ++i) {
            ASSERT_EQ(codewords[i], standard[i].bits) << codebook << ' ' << i;
            ASSERT_EQ(lengths[i], standard[i].length + (with_signs ? sign_bits(codebook, i) : 0))
                << codebook << ' ' << i;
        }
    }
}

// Rounded to nearest; double precision leaves no doubt about any of them.
double rounded(double value, int q) { return std::round(std::ldexp(value, q)); }

TEST(Tables, WindowsAndRotationsAreRoundedToNearest) {
    for (int p = 0; p < 1024; ++p) EXPECT_EQ(TAVIK_SLW[p], rounded(std::sin(pi * (p + 0.5) / 2048), 23)) << p;
    for (int p = 0; p < 128; ++p) EXPECT_EQ(TAVIK_SSW[p], rounded(std::sin(pi * (p + 0.5) / 256), 23)) << p;
    for (int k = 0; k < 512; ++k) {
        EXPECT_EQ(TAVIK_W2[2 * k], 16 * rounded(std::cos(2 * pi * (k + 0.125) / 2048), 23)) << k;
        EXPECT_EQ(TAVIK_W2[2 * k + 1], 16 * rounded(-std::sin(2 * pi * (k + 0.125) / 2048), 23)) << k;
    }
    for (int k = 0; k < 64; ++k) {
        EXPECT_EQ(TAVIK_W4[2 * k], 16 * rounded(std::cos(2 * pi * (k + 0.125) / 256), 23)) << k;
        EXPECT_EQ(TAVIK_W4[2 * k + 1], 16 * rounded(-std::sin(2 * pi * (k + 0.125) / 256), 23)) << k;
    }
}

TEST(Tables, NoiseShapingCoefficients) {
    for (int a = 0; a < 1025; ++a) {
        // The nearest angle; 512/1024 is sin(pi / 6), a tie that goes up.
        EXPECT_EQ(TAVIK_asinf_index_p[a], std::floor(std::asin(a / 1024.0) * 15 / pi + 0.5 + 1e-9)) << a;
        EXPECT_EQ(TAVIK_asinf_index_m[a], -std::floor(std::asin(a / 1024.0) * 17 / pi + 0.5 + 1e-9)) << a;
    }
    for (int i = 0; i < 15; ++i) EXPECT_EQ(TAVIK_sin_table_p[i], rounded(std::sin(i * pi / 15), 23));
    for (int i = 0; i < 17; ++i) EXPECT_EQ(TAVIK_sin_table_m[i], rounded(-std::sin(i * pi / 17), 23));
}

}  // namespace
