// Arithmetic helpers, the 3/4 power and the gain multiply.
#include "quant/fixed_point.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "quant/power34.h"

namespace {

using namespace tavik;

constexpr i64 min64 = std::numeric_limits<i64>::min();
constexpr i64 max64 = std::numeric_limits<i64>::max();

TEST(Q47Exponent, EveryBitPosition) {
    EXPECT_EQ(TAVIK_q47exp4(0), 0);
    for (int bit = 0; bit < 63; ++bit) {
        const i64 lowest = i64{1} << bit;
        const i64 highest = lowest + (lowest - 1);
        for (const i64 x : {lowest, highest, -lowest, -highest}) EXPECT_EQ(TAVIK_q47exp4(x), 46 - bit) << x;
    }
    EXPECT_EQ(TAVIK_q47exp4(min64), -17);
}

TEST(NormShift, MatchesWideArithmetic) {
    __extension__ typedef __int128 Wide;
    std::mt19937_64 random(7);
    for (int trial = 0; trial < 20000; ++trial) {
        const auto v = static_cast<i64>(random()) >> (random() % 64);
        const auto s = static_cast<i32>(random() % 140) - 70;
        Wide expected = v;
        if (s >= 0) {
            for (int i = 0; i < s; ++i) expected = std::clamp<Wide>(expected * 2, min64, max64);
        } else {
            for (int i = 0; i < -s; ++i) expected = expected >= 0 ? expected / 2 : -((-expected + 1) / 2);
        }
        ASSERT_EQ(norm_shift(v, s), static_cast<i64>(expected)) << v << " << " << s;
    }
    EXPECT_EQ(norm_shift(min64, 1), min64);
    EXPECT_EQ(norm_shift(1, 63), max64);
    EXPECT_EQ(norm_shift(-1, 63), min64);
}

TEST(Pow34, WorkedValues) {
    const std::pair<u32, u32> examples[] = {{0, 0},
                                            {1, 4},
                                            {2, 7},
                                            {100, 150},
                                            {4095, 2435},
                                            {4096, 2443},
                                            {8191, 4109},
                                            {8192, 4072},
                                            {16383, 6849},
                                            {16384, 6878},
                                            {65535, 19483},
                                            {(1 << 23) - 1, 741381},
                                            {1 << 23, 741381},
                                            {0x80000000, 741381}};
    for (const auto &[a, v] : examples) EXPECT_EQ(pow34(a), v) << a;
}

TEST(Pow34, CloseToThePowerOverTheWholeRange) {
    for (u32 a = 1; a < 4096; ++a) {
        // The floor, one less where the power is an integer.
        const double power = std::pow(8.0 * a, 0.75);
        ASSERT_EQ(pow34(a), static_cast<u32>(std::ceil(power * (1 - 1e-12)) - 1)) << a;
    }
    for (u32 a = 4096; a < 1 << 23; a += a >> 9) {
        ASSERT_NEAR(pow34(a) / std::pow(8.0 * a, 0.75), 1, 0.0076) << a;
    }
}

TEST(GainRule, RoundsThePowerAtEveryIndex) {
    for (u32 index = 0; index < 256; ++index) {
        const double factor =
            index < first_silencing_gain ? std::exp2(-3 * (static_cast<double>(index) - 100) / 16) : 0;
        const double rounding = index < 15 ? 0.5 : 0.4045;
        for (u32 v = 0; v <= 741381; v = v * 9 / 8 + 1) {
            const double exact = v * factor + rounding;
            // The gain itself is rounded: to 2^-20 above index 57, and one further off at index 165.
            const double error = 1 + v * (index < 58 ? 1e-5 * factor : 1.0 / (1 << 20));
            ASSERT_NEAR(static_cast<double>(gain_rule(index)(v)), exact - 0.5, error) << index << ' ' << v;
        }
    }
    EXPECT_EQ(gain_rule(100)(1000), 1000u);
    EXPECT_EQ(gain_rule(116)(1000), 125u);
    EXPECT_EQ(gain_rule(84)(1000), 8000u);
    for (u32 index = first_silencing_gain; index < 256; ++index) EXPECT_EQ(gain_rule(index)(741381), 0u);
    EXPECT_EQ(gain_rule(165)(0xFFFFFFFF), (0xFFFFFFFFu * 224u + 424149u) >> 20) << "32-bit product";
}

}  // namespace
