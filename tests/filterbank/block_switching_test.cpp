// Peaks, attack search and the window state machine.
#include "filterbank/block_switching.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>

#include "tavik.h"

namespace {

constexpr std::uint32_t hz_48000 = 3;
constexpr std::uint32_t hz_16000 = 8;
enum : std::uint32_t { only_long, long_start, eight_short, long_stop };

using Peaks = std::array<std::int32_t, 16>;

struct Detector {
    std::uint32_t short_run_active = 0;
    std::uint32_t attack_index = 99;
    TavikAttackDetectorState state{};

    std::uint32_t decide(const Peaks &peaks, std::uint32_t rate = hz_48000) {
        return TAVIK_BlockSwitch(rate, peaks.data(), &short_run_active, &attack_index, &state);
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

#if defined(__aarch64__)

TEST(CalcAttack, TwinsAreEqual) {
    std::mt19937 random(4);
    for (int trial = 0; trial < 100; ++trial) {
        std::array<std::int32_t, 1024> block{};
        std::array<std::int32_t, 8> expected, peaks;
        for (auto &x : block) x = static_cast<std::int32_t>(random()) >> (trial % 33 < 32 ? trial % 33 : 31);
        block[random() % 1024] = std::numeric_limits<std::int32_t>::min();
        block[random() % 1024] = std::numeric_limits<std::int32_t>::max();
        if (trial == 0) block.fill(std::numeric_limits<std::int32_t>::min());
        tavik::portable::measure_peaks(block, expected);
        tavik::neon::measure_peaks(block, peaks);
        EXPECT_EQ(peaks, expected);
    }
}

#endif

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

TEST(BlockSwitch, LowRatesNeedNoFall) {
    Peaks peaks;
    peaks.fill(1000);
    peaks[0] = peaks[1] = 100;
    Detector at_48, at_16;
    at_48.state = at_16.state = {100, 100, {}};
    EXPECT_EQ(at_48.decide(peaks, hz_48000), only_long);
    EXPECT_EQ(at_16.decide(peaks, hz_16000), long_start);
    EXPECT_EQ(at_16.attack_index, 2u);
}

// Both half frames are equally loud, so the finer levels decide.
TEST(BlockSwitch, PairTieGoesToThePairExaminedFirst) {
    // Pairs 0 and 1 cannot both qualify; 1 and 3 can, with equal strengths.
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
