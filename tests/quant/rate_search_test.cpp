// The search of the rate loop on scripted counts.
#include "quant/rate_search.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace {

using namespace tavik;

constexpr u32 never_silent = 1000;

struct Outcome {
    u32 common_sf;
    std::vector<u32> trials;
};

Outcome search(u32 start, RateTarget target, const std::map<u32, u32> &counts, u32 silent_sf = never_silent) {
    std::vector<u32> trials;
    RateSearch search(start, silent_sf, target, [&](u32 common_sf) {
        trials.push_back(common_sf);
        return counts.at(common_sf);
    });
    return {search.run(), trials};
}

using Trials = std::vector<u32>;

TEST(RateSearch, RaisesUntilWithinTolerance) {
    const Outcome outcome = search(40, {1000, 100}, {{40, 1500}, {44, 1150}, {48, 950}});
    EXPECT_EQ(outcome.common_sf, 48u);
    EXPECT_EQ(outcome.trials, (Trials{40, 44, 48}));
}

TEST(RateSearch, WalksBelowTheTarget) {
    const Outcome outcome = search(40, {1000, 100}, {{40, 1060}, {41, 1010}, {42, 990}});
    EXPECT_EQ(outcome.trials, (Trials{40, 41, 42}));
}

TEST(RateSearch, FirstStepGrowsWithTheRelativeDistance) {
    const std::map<u32, u32> counts = {{40, 100}, {39, 1950}, {38, 1950}, {36, 1490}, {32, 1950}};
    EXPECT_EQ(search(40, {2000, 100}, counts).trials, (Trials{40, 32}));         // 19 times the count: 16, halved
    EXPECT_EQ(search(40, {1500, 500}, counts).trials, (Trials{40, 36}));         // 14 times: 8, halved
    EXPECT_EQ(search(40, {900, 800}, counts).trials, (Trials{40, 38, 39, 40}));  // 8 times: 4, halved
}

TEST(RateSearch, ZeroToleranceUsesUpTheStep) {
    const Outcome outcome = search(40, {1000, 0}, {{40, 1000}, {38, 1100}, {39, 1050}});
    EXPECT_EQ(outcome.common_sf, 40u);
    EXPECT_EQ(outcome.trials, (Trials{40, 38, 39, 40}));
}

TEST(RateSearch, EndsAtTheLowestValue) {
    EXPECT_EQ(search(0, {1000, 10}, {{0, 100}}).trials, (Trials{0}));
    EXPECT_EQ(search(1, {1000, 10}, {{1, 200}, {0, 300}}).trials, (Trials{1, 0}));
}

TEST(RateSearch, EndsWhereEverythingIsSilent) {
    std::map<u32, u32> counts;
    for (u32 g = 0; g < 200; ++g) counts[g] = 14;  // section data only, above the target
    EXPECT_EQ(search(100, {-50, 10}, counts, 112).trials, (Trials{100, 104, 108, 112}));
    EXPECT_EQ(search(100, {10, 10}, counts, 104).trials, (Trials{100, 101, 102, 103, 104}));
    EXPECT_EQ(search(150, {10, 2}, counts, 112).trials, (Trials{150}));
}

}  // namespace
