// The tuning constants: every threshold from both of its sides.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "common/encoder_context.h"
#include "support/digest.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik;

// ---- Block switching ----

struct BlockSwitching {
    u32 indices;                               // as many sampling rates as share the row
    i32 group, pair_rise, subblock_rise;       // in 1/128
    i32 pair_fall = 128, subblock_fall = 128;  // 128: none is needed
};

constexpr BlockSwitching block_switching[] = {
    {5, 29, 21, 15, 76, 64}, {1, 30, 23, 19, 89, 70}, {1, 31, 25, 21, 108, 76}, {1, 32, 28, 21, 108, 76},
    {1, 37, 30, 25},         {1, 37, 31, 25},         {1, 37, 32, 28},          {1, 38, 37, 30}};

constexpr i32 loud = 12800;  // 100 times the unit of the ratios

// The sub-block of an attack, -1 without one.
int attack(u32 index, const std::array<i32, 16> &peaks, i32 previous) {
    u32 short_run_active = 0, attack_index = 0;
    TavikAttackDetectorState state{previous, previous, {}};
    TAVIK_BlockSwitch(index, peaks.data(), &short_run_active, &attack_index, &state);
    return short_run_active == 1 ? static_cast<int>(attack_index) : -1;
}

// The second half frame, the first, sub-blocks 2 and 3, or 2 alone, stand out from neighbours of levels l and r.
int group_attack(u32 index, i32 l) { return attack(index, {l, l, l, l, loud, loud, loud, loud, loud, loud}, loud); }
int group_fall(u32 index, i32 r) { return attack(index, {loud, loud, loud, loud, r, r, r, r, r, r}, loud); }
int pair_attack(u32 index, i32 l, i32 r) {
    constexpr i32 half = loud / 2;
    return attack(index, {l, l, loud, loud, r, r, half, half}, loud);
}
int subblock_attack(u32 index, i32 l, i32 r) {
    return attack(index, {loud, l, loud, r, loud, loud, loud, loud, loud, loud}, loud);
}

TEST(Tuning, BlockSwitching) {
    u32 index = 0;
    for (const BlockSwitching &row : block_switching) {
        for (const u32 end = index + row.indices; index < end; ++index) {
            SCOPED_TRACE(index);
            EXPECT_EQ(group_attack(index, 100 * row.group - 1), 4);
            EXPECT_EQ(group_attack(index, 100 * row.group), -1);
            EXPECT_EQ(group_fall(index, 100 * row.group - 1), 0);
            EXPECT_NE(group_fall(index, 100 * row.group), 0);
            EXPECT_EQ(pair_attack(index, 100 * row.pair_rise - 1, 0), 2);
            EXPECT_NE(pair_attack(index, 100 * row.pair_rise, 0), 2);
            EXPECT_EQ(pair_attack(index, 0, 100 * row.pair_fall - 1), 2);
            EXPECT_EQ(pair_attack(index, 0, 100 * row.pair_fall) == 2, row.pair_fall == 128);
            const i32 fallen = 100 * row.subblock_fall - 1;
            EXPECT_EQ(subblock_attack(index, 100 * row.subblock_rise - 1, fallen), 2);
            EXPECT_EQ(subblock_attack(index, 100 * row.subblock_rise, fallen), -1);
            EXPECT_EQ(subblock_attack(index, 0, fallen + 1), row.subblock_fall == 128 ? 2 : -1);
        }
    }
    EXPECT_EQ(index, 12u);
}

// ---- Mid/side ----

struct MidSide {
    u32 end;                    // of the sampling rates that share the row
    i32 side_factor;            // a band prefers mid/side up to side / both = 10 / side_factor
    u32 low_share, high_share;  // per cent of bands
};

constexpr MidSide mid_side[] = {{6, 12, 30, 55}, {9, 19, 27, 52}, {12, 19, 25, 50}};

// The mask where the first bands have |l| + |r| in the given proportion to |l - r|, and the others opposite channels.
u32 mask(u32 index, u32 first_bands, u32 bands, i32 both, i32 side) {
    std::vector<i32> spectrum(4096);
    for (u32 k = 0; k < TAVIK_SwbOffsetLong[index][bands]; ++k) {
        const bool is_first = k < TAVIK_SwbOffsetLong[index][first_bands];
        spectrum[k] = 1024 * (is_first ? both + side : 1);
        spectrum[2048 + k] = 1024 * (is_first ? both - side : -1);
    }
    std::array<u32, 52> ms_used{};
    std::array<i32, 2> targets{1000, 1000};
    u32 ms_mask_present = 0;
    TAVIK_MSStereo(spectrum.data(), index, ms_used.data(), targets.data(), &ms_mask_present, bands, 0);
    return ms_mask_present;
}

TEST(Tuning, MidSide) {
    u32 index = 0;
    for (const MidSide &row : mid_side) {
        for (; index < row.end; ++index) {
            EXPECT_EQ(mask(index, 20, 20, row.side_factor, 10), 2u) << index;
            EXPECT_EQ(mask(index, 20, 20, row.side_factor - 1, 10), 0u) << index;
            for (u32 bands = 1; bands <= TAVIK_NumSwbLongWindow[index]; ++bands) {
                for (u32 first = 0; first <= bands; ++first) {
                    const u32 percent = 100 * first;  // of `bands`
                    const bool none = percent < row.low_share * bands;
                    const u32 expected = percent > row.high_share * bands ? 2 : none ? 0 : 1;
                    ASSERT_EQ(mask(index, first, bands, 20, 10), expected) << index << ' ' << first << '/' << bands;
                }
            }
        }
    }
}

// ---- Temporal noise shaping ----

struct Tns {
    u32 rate, bit_rate;  // from where on it is tried
    u32 start_band, max_band;
};

constexpr Tns tns[] = {{96000, 0, 19, 31},     {88200, 0, 20, 31},     {64000, 0, 23, 34},     {48000, 70000, 24, 40},
                       {44100, 64000, 25, 42}, {32000, 64000, 27, 51}, {24000, 48000, 22, 46}, {22050, 44100, 23, 46},
                       {16000, 51200, 20, 42}, {12000, 38400, 24, 42}, {11025, 35280, 25, 42}, {8000, 25600, 26, 39}};

TEST(Tuning, BandsOfTemporalNoiseShaping) {
    for (u32 index = 0; index < 12; ++index) {
        std::vector<i32> spectrum(1024), before;
        for (std::size_t k = 0; k < 1024; ++k) spectrum[k] = k % 2 == 0 ? 10000 : -10000;
        before = spectrum;
        const u32 bands = TAVIK_NumSwbLongWindow[index];
        TavikTnsData data{};
        TAVIK_TemporalNoiseShaping(&data, spectrum.data(), static_cast<i32>(index), bands, bands);
        EXPECT_EQ(data.length, bands - tns[index].start_band) << index;
        const auto *edges = TAVIK_SwbOffsetLong[index];
        EXPECT_EQ(std::mismatch(spectrum.begin(), spectrum.end(), before.begin()).first - spectrum.begin() - 1,
                  edges[tns[index].start_band])
            << index;  // the filter leaves its first line
        EXPECT_EQ(std::mismatch(spectrum.rbegin(), spectrum.rend(), before.rbegin()).first - spectrum.rbegin(),
                  1024 - edges[tns[index].max_band])
            << index;
    }
}

bool has_tns(u32 rate, u32 bit_rate) {
    using namespace tavik_test;
    const EncoderConfig config{TAVIK_MODE_MONO, rate, bit_rate, 0, 0, 0, 0, 0, 0, 0, {}};
    std::vector<i16> clicks(8 * 1024);
    for (std::size_t i = 300; i < clicks.size(); i += 900) clicks[i] = 20000;
    const auto frames = read_stream(config, encode_stream(config, clicks));
    return std::any_of(frames.begin(), frames.end(), [](const auto &frame) { return frame.channels[0].has_tns; });
}

TEST(Tuning, BitRatesOfTemporalNoiseShaping) {
    for (u32 index = 3; index < 12; ++index) {
        EXPECT_TRUE(has_tns(tns[index].rate, tns[index].bit_rate)) << tns[index].rate;
        EXPECT_FALSE(has_tns(tns[index].rate, tns[index].bit_rate - 1)) << tns[index].rate;
    }
}

// ---- Scale factors ----

// The offsets of all bands whose largest magnitude is the same.
void add_offsets(tavik_test::Digest &digest, u32 index, WindowSequence sequence, u32 group_length, i32 magnitude) {
    TavikCodingBlock block{};
    block.sampling_rate_index = index;
    block.window_sequence[0] = sequence;
    block.num_window_groups[0] = 1;
    block.window_group_length[0] = {group_length, 0, 0};
    const bool is_short = sequence == WindowSequence::eight_short;
    block.max_sfb[0] = is_short ? TAVIK_NumSwbShortWindow[index] : TAVIK_NumSwbLongWindow[index];
    const u32 *edges = is_short ? TAVIK_SwbOffsetShort[index] : TAVIK_SwbOffsetLong[index];
    for (u32 b = 0; b <= block.max_sfb[0]; ++b) block.sfb_offset[0][b] = group_length * edges[b];
    const std::vector<i32> spectrum(1024, magnitude);
    std::vector<u32> pow34(1024), offsets(band_array_size);
    TAVIK_PreQuant(&block, pow34.data(), spectrum.data(), offsets.data(), 0);
    digest.add(std::span<const u32>(offsets));
}

// Every rule of every rate, from both sides of every limit.
TEST(Tuning, ScaleFactorOffsets) {
    tavik_test::Digest digest;
    using enum WindowSequence;
    for (u32 index = 0; index < 12; ++index) {
        for (i32 magnitude = 1; magnitude < 1 << 23; magnitude += 1 + magnitude / 4) {
            for (const auto sequence : {only_long, long_start, long_stop}) {
                add_offsets(digest, index, sequence, 1, magnitude);
            }
            for (u32 windows = 1; windows <= 8; ++windows) add_offsets(digest, index, eight_short, windows, magnitude);
        }
    }
    EXPECT_EQ(digest.value(), 0x55a89a85b2650f93u) << std::hex << digest.value();
}

}  // namespace
