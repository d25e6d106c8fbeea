// The bound on the prediction gain.

#include "tools/linear_prediction.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "tools/exact_prediction.h"

namespace {

using namespace tavik;
using tavik_test::predict_exactly;

using LagSums = std::array<i64, tns_lags>;

TEST(PredictionGainIsLow, IsSafeAndSettlesMostSignals) {
    std::mt19937 random(1);
    u32 low = 0, settled = 0;
    for (u32 trial = 0; trial < 6000; ++trial) {
        const std::vector<i32> x = tavik_test::random_lines(random, 40 + random() % 600, trial);
        LagSums r;
        wide_autocorrelation(x, r);
        const long double error = predict_exactly(r).error;
        const bool is_low = prediction_gain_is_low(r);
        if (error < 0.562L) {
            EXPECT_FALSE(is_low) << error;
        }
        if (error > 0.563L) ++low, settled += is_low ? 1 : 0;
    }
    EXPECT_GT(low, 2000u);
    EXPECT_EQ(settled, low);
}

TEST(PredictionGainIsLow, SaysNothingOfNumbersThatBelongToNoSignal) {
    EXPECT_FALSE(prediction_gain_is_low(LagSums{}));
    EXPECT_FALSE(prediction_gain_is_low(LagSums{1, 0, 0, 0, 0, 2}));
    EXPECT_FALSE(prediction_gain_is_low(LagSums{-1}));
    EXPECT_FALSE(prediction_gain_is_low(LagSums{std::numeric_limits<i64>::min()}));
    EXPECT_TRUE(prediction_gain_is_low(LagSums{1}));
    EXPECT_TRUE(prediction_gain_is_low(LagSums{std::numeric_limits<i64>::max()}));
    std::mt19937_64 random(2);
    for (u32 trial = 0; trial < 20000; ++trial) {
        LagSums r;
        for (i64 &value : r) value = static_cast<i64>(random()) >> (random() % 6);
        if (prediction_gain_is_low(r)) {
            EXPECT_GT(predict_exactly(r).error, 0.55L);
        }
    }
}

}  // namespace
