// The two rules between a spectral magnitude and its quantized value, over all that they can be given, against exact
// integer arithmetic; the exponent of 64-bit values at every bit position.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "quant/power34.h"

namespace {

using namespace tavik;

__extension__ typedef unsigned __int128 u128;

constexpr u32 largest_pow34 = 741381;

TEST(Q47ExponentExhaustive, EveryBitPosition) {
    EXPECT_EQ(TAVIK_q47exp4(0), 0);
    for (i32 bit = 0; bit < 63; ++bit) {
        const i64 lowest = i64{1} << bit, highest = lowest + (lowest - 1);
        for (const i64 x : {lowest, highest, -lowest, -highest}) EXPECT_EQ(TAVIK_q47exp4(x), 46 - bit) << x;
    }
    EXPECT_EQ(TAVIK_q47exp4(std::numeric_limits<i64>::min()), -17);
}

// The largest integer strictly below n^(3/4) 2^q.
u32 largest_below_pow34(u32 n, u32 q) {
    const u128 bound = (u128{n} * n * n) << (4 * q);
    u32 below = 0;
    for (u32 bit = 1u << 22; bit != 0; bit >>= 1) {
        const u128 square = u128{below + bit} * (below + bit);
        if (square * square < bound) below += bit;
    }
    return below;
}

TEST(Pow34Exhaustive, SmallMagnitudesGiveTheLargestIntegerBelowThePower) {
    for (u32 a = 0; a < 4096; ++a) ASSERT_EQ(pow34(a), largest_below_pow34(8 * a, 0)) << a;
}

// a = n 2^(j - 3) and a remainder that is dropped, n = 16384 ... 32767: the Q11 power of n times 2^(3 j / 4), which is
// taken in Q4. From j = 3 on the product would not fit 32 bits: ceil(3 j / 4) low bits are dropped first.
TEST(Pow34Exhaustive, LargeMagnitudesScaleThePowerOfTheirLeadingBits) {
    std::vector<u64> power_q11;
    for (u32 n = 16384; n < 32768; ++n) power_q11.push_back(largest_below_pow34(n, 11));
    u32 a = 4096;
    for (u32 j = 1; j <= 11; ++j) {
        const auto scale_q4 = static_cast<u64>(std::lround(16 * std::exp2(0.75 * j)));
        const u32 dropped = j < 3 ? 0 : (3 * j + 3) / 4;
        for (const u32 end = 2 * a; a < end; ++a) {
            const u64 product_q15 = (power_q11[(u64{a} << 3 >> j) - 16384] >> dropped) * scale_q4;
            if (pow34(a) != product_q15 >> (15 - dropped)) FAIL() << a;
            if (std::abs(pow34(a) / std::pow(8.0 * a, 0.75) - 1) > 0.006) FAIL() << a;
        }
    }
    EXPECT_EQ(a, 1u << 23);
    for (const u32 beyond : {a - 1, a, a + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(pow34(beyond), largest_pow34) << beyond;
    }
}

struct ExactGain {
    u64 step;      // one quantizer step in units of the gain
    u64 gain;      // 2^(-3 (index - 100) / 16) of it, rounded to the nearest unit, a half down
    u64 rounding;  // what a product may lack for the next step
};

ExactGain exact_gain(u32 index) {
    const u64 step = index < 15 ? 2 : index < 58 ? 1 << 16 : 1 << 20;
    const u64 rounding = index < 15 ? 1 : index < 58 ? 26510 : 424149;
    if (index == 165) return {step, 224, rounding};  // 224.8, rounded down
    const double factor = std::exp2(-3 * (static_cast<double>(index) - 100) / 16);
    return {step, static_cast<u64>(std::ceil(static_cast<double>(step) * factor - 0.5)), rounding};
}

// The smallest v whose quantized value is q or more; beyond largest_pow34 where there is none.
u64 smallest_pow34(const ExactGain &exact, u64 q) {
    if (exact.gain == 0) return largest_pow34 + 1;
    return (q * exact.step - exact.rounding + exact.gain - 1) / exact.gain;
}

TEST(GainRuleExhaustive, EveryRoundingEdgeOfEveryGain) {
    for (u32 index = 0; index < 256; ++index) {
        const ExactGain exact = exact_gain(index);
        const GainRule rule = gain_rule(index);
        ASSERT_EQ(rule(0), 0u) << index;
        ASSERT_EQ(exact.gain == 0, index >= first_silencing_gain) << index;
        for (u64 q = 1; q <= 8192; ++q) {
            const u64 edge = std::min<u64>(smallest_pow34(exact, q), largest_pow34 + 1);
            if (edge <= largest_pow34 && rule(static_cast<u32>(edge)) < q) FAIL() << index << ' ' << q;
            if (rule(static_cast<u32>(edge - 1)) >= q) FAIL() << index << ' ' << q;
            if (edge > largest_pow34) break;
        }
    }
    EXPECT_EQ(gain_rule(165)(0xFFFFFFFF), (0xFFFFFFFFu * 224u + 424149u) >> 20) << "32-bit product";
    EXPECT_EQ(gain_rule(164)(0xFFFFFFFF), (u64{0xFFFFFFFF} * 256 + 424149) >> 20) << "64-bit product";
}

}  // namespace
