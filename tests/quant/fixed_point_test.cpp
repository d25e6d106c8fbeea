// Arithmetic helpers, and values of the 3/4 power.
#include "quant/fixed_point.h"

#include <gtest/gtest.h>

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

}  // namespace
