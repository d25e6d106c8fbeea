// Mid/side decision, transform and bit shares.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "tavik.h"

namespace {

constexpr std::uint32_t index = 4;  // 44.1 kHz
constexpr std::uint32_t bands = 48;

struct Pair {
    std::vector<std::int32_t> spectrum = std::vector<std::int32_t>(4096);
    std::array<std::uint32_t, 52> ms_used{};
    std::array<std::int32_t, 2> target{1000, 1000};
    std::uint32_t mask = 99;

    // Every line of a band gets these values.
    void fill(std::uint32_t band, std::int32_t left, std::int32_t right) {
        for (std::uint32_t k = TAVIK_SwbOffsetLong[index][band]; k < TAVIK_SwbOffsetLong[index][band + 1]; ++k) {
            spectrum[k] = left;
            spectrum[2048 + k] = right;
        }
    }
    void decide(std::uint32_t tns_data_present = 0) {
        TAVIK_MSStereo(spectrum.data(), index, ms_used.data(), target.data(), &mask, bands, tns_data_present);
    }
};

constexpr std::int32_t loud = 1 << 16;

TEST(MsStereo, EqualChannelsAndSilenceBecomeAllMid) {
    Pair equal, silent;
    for (std::uint32_t b = 0; b < bands; ++b) equal.fill(b, loud, loud);
    for (Pair *pair : {&equal, &silent}) {
        pair->decide();
        EXPECT_EQ(pair->mask, 2u);
        EXPECT_EQ(pair->target, (std::array{1900, 100}));
    }
    EXPECT_EQ(equal.spectrum[5], loud);
    EXPECT_EQ(equal.spectrum[2048 + 5], 0);
}

TEST(MsStereo, OppositeChannelsStayLeftRight) {
    Pair pair;
    for (std::uint32_t b = 0; b < bands; ++b) pair.fill(b, loud, -loud);
    const auto before = pair.spectrum;
    pair.decide();
    EXPECT_EQ(pair.mask, 0u);
    EXPECT_EQ(pair.spectrum, before);
    EXPECT_EQ(pair.target, (std::array{1000, 1000}));
}

// Mid/side from band `first` to band `last`, left/right elsewhere.
Pair partly_equal(std::uint32_t first, std::uint32_t last) {
    Pair pair;
    for (std::uint32_t b = 0; b < bands; ++b) pair.fill(b, loud, b >= first && b <= last ? loud : -loud);
    pair.decide();
    return pair;
}

TEST(MsStereo, ShareOfBandsDecidesForTheFrame) {
    const Pair from_band_1 = partly_equal(1, 19);  // 19 of 48 bands: 39.6 %, but band 0 is left/right
    EXPECT_EQ(from_band_1.mask, 0u);
    EXPECT_EQ(from_band_1.ms_used[1], 1u);
    const Pair from_band_0 = partly_equal(0, 18);
    EXPECT_EQ(from_band_0.mask, 1u);
    EXPECT_EQ(from_band_0.spectrum[2048 + 3], 0);        // transformed
    EXPECT_EQ(from_band_0.spectrum[2048 + 900], -loud);  // left as it was
    const Pair most = partly_equal(21, 47);              // 56.3 %: all bands, also those without a flag
    EXPECT_EQ(most.mask, 2u);
    EXPECT_EQ(most.ms_used[0], 0u);
    EXPECT_EQ(most.spectrum[0], 0);
    EXPECT_EQ(most.spectrum[2048], loud);
}

TEST(MsStereo, MidAndSideRoundDown) {
    Pair pair;
    pair.spectrum[0] = 3;
    pair.spectrum[2048] = -2;
    pair.spectrum[1] = -3;
    pair.spectrum[2049] = 2;
    pair.decide();
    EXPECT_EQ(pair.mask, 2u);
    EXPECT_EQ(pair.spectrum[0], 0);
    EXPECT_EQ(pair.spectrum[2048], 2);
    EXPECT_EQ(pair.spectrum[1], -1);
    EXPECT_EQ(pair.spectrum[2049], -3);
}

TEST(MsStereo, SideShareOfTheBits) {
    // Right = left x 7/8: A = 60 and D = 4 units per line, q = 200 x 4 / 64 = 12, raised to 14; with TNS 16.
    for (const std::uint32_t tns : {0u, 1u}) {
        Pair pair;
        for (std::uint32_t b = 0; b < bands; ++b) pair.fill(b, loud, loud / 8 * 7);
        pair.decide(tns);
        EXPECT_EQ(pair.target, tns == 0 ? (std::array{1860, 140}) : (std::array{1840, 160}));
    }
}

}  // namespace
