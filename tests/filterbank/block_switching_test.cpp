// Peaks, attack search and the window state machine.
#include <gtest/gtest.h>

#include <array>

#include "tavik.h"

namespace {

constexpr std::uint32_t hz_48000 = 3;
enum : std::uint32_t { only_long, long_start, eight_short, long_stop };

using Peaks = std::array<std::int32_t, 16>;

struct Detector {
    std::uint32_t short_run_active = 0;
    std::uint32_t attack_index = 99;
    TavikAttackDetectorState state{};

    std::uint32_t decide(const Peaks &peaks) {
        return TAVIK_BlockSwitch(hz_48000, peaks.data(), &short_run_active, &attack_index, &state);
    }
};

Peaks burst_at(std::size_t subblock, std::int32_t level) {
    Peaks peaks{};
    peaks[subblock] = level;
    return peaks;
}

TEST(CalcAttack, LargestMagnitudeOfEachSubBlock) {
    std::array<std::int32_t, 1024> block{};
    block[0] = -300;
    block[127] = 299;
    block[1023] = 5;
    std::array<std::int32_t, 8> peaks;
    TAVIK_CalcAttack(block.data(), peaks.data());
    EXPECT_EQ(peaks, (std::array<std::int32_t, 8>{300, 0, 0, 0, 0, 0, 0, 5}));
}

TEST(BlockSwitch, WindowSequencesFollowEachOther) {
    Detector detector;
    const Peaks silence{};
    const Peaks attack = burst_at(3, 5);
    EXPECT_EQ(detector.decide(silence), only_long);
    EXPECT_EQ(detector.attack_index, 99u) << "written without an attack";
    EXPECT_EQ(detector.decide(attack), long_start);
    EXPECT_EQ(detector.attack_index, 3u);
    EXPECT_EQ(detector.decide(burst_at(5, 1000)), eight_short);
    EXPECT_EQ(detector.attack_index, 5u);
    EXPECT_EQ(detector.decide(silence), long_stop);
    EXPECT_EQ(detector.decide(silence), only_long);
    EXPECT_EQ(detector.decide(attack), long_start);
    EXPECT_EQ(detector.decide(silence), long_stop);
}

TEST(BlockSwitch, TooQuietOrStationarySignalsAreNoAttack) {
    Detector detector;
    EXPECT_EQ(detector.decide(burst_at(5, 3)), only_long);
    EXPECT_EQ(detector.decide(burst_at(5, 5)), long_start);
    for (const std::int32_t level : {1, 100, 32768}) {
        Detector steady;
        steady.state = {level, level, {}};
        Peaks peaks;
        peaks.fill(level);
        EXPECT_EQ(steady.decide(peaks), only_long) << level;
    }
}

// Both half frames are equally loud, so the finer levels decide.
TEST(BlockSwitch, PairTieGoesToTheEarlierPair) {
    // Pairs 1 and 3, with equal strengths.
    Detector detector;
    EXPECT_EQ(detector.decide({10, 10, 1000, 900, 10, 10, 900, 1000, 10, 10}), long_start);
    EXPECT_EQ(detector.attack_index, 2u);
    EXPECT_EQ(detector.state.last_subblock_peak, 1000);
    EXPECT_EQ(detector.state.last_pair_peak, 1000);
    // A stronger one takes the place of an earlier one.
    Detector stronger;
    EXPECT_EQ(stronger.decide({10, 10, 900, 900, 10, 10, 900, 1000, 10, 10}), long_start);
    EXPECT_EQ(stronger.attack_index, 7u);
}

TEST(BlockSwitch, SubBlockLevelUsesThePreviousCallAndTheLookahead) {
    // Sub-block 0 stands out from last_subblock_peak and sub-block 1; its pair does not from the loud pairs around.
    Detector first;
    first.state = {10, 1000, {}};
    EXPECT_EQ(first.decide({1000, 400, 900, 900, 900, 900, 900, 900, 900, 900}), long_start);
    EXPECT_EQ(first.attack_index, 0u);
    // Sub-block 7 falls only in the lookahead.
    Detector last;
    last.state = {900, 900, {}};
    EXPECT_EQ(last.decide({900, 900, 900, 900, 900, 900, 50, 1000, 400, 1000}), long_start);
    EXPECT_EQ(last.attack_index, 7u);
}

}  // namespace
