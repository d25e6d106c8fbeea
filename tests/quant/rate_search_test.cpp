// The search of the rate loop on scripted counts, and its longest course.
#include "quant/rate_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <vector>

namespace {

using namespace tavik;

constexpr u32 never_all_zero = 1000;

struct Outcome {
    u32 common_sf;
    std::vector<u32> trials;
};

Outcome search(u32 start, RateTarget target, const std::map<u32, u32> &counts,
               u32 all_zero_common_sf = never_all_zero) {
    std::vector<u32> trials;
    RateSearch search(start, all_zero_common_sf, target, [&](u32 common_sf) {
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

// The step to the second trial is half of the first one, since the search turns downward.
TEST(RateSearch, FirstStepGrowsWithTheRelativeDistance) {
    const auto first_step = [](i32 target) {
        std::vector<u32> trials;
        RateSearch search(40, never_all_zero, {target, 1}, [&](u32 common_sf) {
            trials.push_back(common_sf);
            return trials.size() == 1 ? 100 : static_cast<u32>(target);
        });
        search.run();
        return 2 * (40 - trials.at(1));
    };
    EXPECT_EQ(first_step(900), 4u);  // 8 times the count away
    EXPECT_EQ(first_step(901), 8u);
    EXPECT_EQ(first_step(1700), 8u);  // 16 times
    EXPECT_EQ(first_step(1701), 16u);
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

TEST(RateSearch, EndsWhereEverythingIsZero) {
    std::map<u32, u32> counts;
    for (u32 g = 0; g < 200; ++g) counts[g] = 14;  // section data only, above the target
    EXPECT_EQ(search(100, {-50, 10}, counts, 112).trials, (Trials{100, 104, 108, 112}));
    EXPECT_EQ(search(100, {10, 10}, counts, 104).trials, (Trials{100, 101, 102, 103, 104}));
    EXPECT_EQ(search(150, {10, 2}, counts, 112).trials, (Trials{150}));
}

// Counts that an opponent may answer with; 0: the target leaves no such count.
struct Answers {
    RateTarget target;
    u32 far_above;
    u32 just_above;  // within the tolerance
    u32 below;       // or equal
};

// Makes the search as long as it can. It decides anew about each new common_sf; one seen before has its count.
class Opponent {
 public:
    Opponent(u32 start, u32 all_zero_common_sf, const Answers &answers)
        : start_(start), all_zero_common_sf_(all_zero_common_sf), answers_(answers) {}

    // Counts of the longest search that begins with `decisions`.
    std::size_t longest(const std::vector<u32> &decisions = {}) const {
        const auto [counts, decided] = run(decisions);
        std::size_t most = counts;
        std::vector<u32> other = decisions;
        for (std::size_t i = decisions.size(); i < decided; ++i) {
            // What follows a count just above is the walk upward, which any count above prolongs.
            if (answers_.just_above != 0) most = std::max(most, run(with(other, answers_.just_above)).counts);
            if (answers_.below != 0) most = std::max(most, longest(with(other, answers_.below)));
            other.push_back(answers_.far_above);
        }
        return most;
    }

 private:
    struct Course {
        std::size_t counts;
        std::size_t decided;
    };

    static std::vector<u32> with(std::vector<u32> decisions, u32 another) {
        decisions.push_back(another);
        return decisions;
    }

    // One search; when the decisions are used up, every further count is far above.
    Course run(const std::vector<u32> &decisions) const {
        std::array<u32, 144> answered{};  // by common_sf; 127 and a first step of 16 are the most
        Course course{0, 0};
        RateSearch search(start_, all_zero_common_sf_, answers_.target, [&](u32 common_sf) {
            ++course.counts;
            u32 &answer = answered.at(common_sf);
            if (answer == 0) {
                answer = course.decided < decisions.size() ? decisions[course.decided] : answers_.far_above;
                ++course.decided;
            }
            return answer;
        });
        search.run();
        return course;
    }

    u32 start_;
    u32 all_zero_common_sf_;
    Answers answers_;
};

// The encoder's searches: common_sf grows beyond all_zero_common_sf by a first step at most, to 127, and the next frame
// starts there; all_zero_common_sf is 112 less an offset of 0 to 18.
TEST(RateSearch, NoOpponentExceedsTheLimitOfCounts) {
    constexpr Answers all_answers[] = {
        // The first count decides on a first step of 4, 8 or 16: below the target, or above one that is out of reach.
        {{1000, 100}, 2000, 1050, 500}, {{1000, 100}, 2000, 1050, 100}, {{1000, 100}, 2000, 1050, 10},
        {{-100, 103}, 50, 1, 0},        {{-100, 103}, 10, 1, 0},        {{-100, 103}, 5, 1, 0},
        {{1000, 0}, 2000, 0, 1000}};
    std::size_t most = 0;
    for (const Answers &answers : all_answers) {
        for (u32 all_zero_common_sf = 94; all_zero_common_sf <= 112; ++all_zero_common_sf) {
            for (u32 start = 0; start < 128; ++start) {
                most = std::max(most, Opponent(start, all_zero_common_sf, answers).longest());
            }
        }
    }
    EXPECT_EQ(most, max_counts_per_search);
}

}  // namespace
