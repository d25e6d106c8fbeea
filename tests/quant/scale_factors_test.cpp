// Starting offsets of bands and their adjustment.
#include <gtest/gtest.h>

#include <vector>

#include "interface/encoder_context.h"

namespace {

using namespace tavik;

struct Channel {
    TavikCodingBlock block{};
    std::vector<u32> pow34 = std::vector<u32>(1024, 12345);
    std::vector<i32> spectrum = std::vector<i32>(1024);
    std::vector<u32> offsets = std::vector<u32>(band_array_size, 77);

    Channel(u32 index, WindowSequence sequence) {
        block.sampling_rate_index = index;
        block.window_sequence[0] = sequence;
        block.num_window_groups[0] = 1;
        block.window_group_length[0] = {1, 0, 0};
        block.max_sfb[0] = TAVIK_NumSwbLongWindow[index] - 1;
        for (u32 b = 0; b <= block.max_sfb[0]; ++b) block.sfb_offset[0][b] = TAVIK_SwbOffsetLong[index][b];
    }
    u32 line(u32 band) const { return TAVIK_SwbOffsetLong[block.sampling_rate_index][band]; }
    void estimate() { TAVIK_PreQuant(&block, pow34.data(), spectrum.data(), offsets.data(), 0); }
};

// Offset of one band of a long block whose only line has this magnitude.
u32 long_offset(u32 index, WindowSequence sequence, u32 band, i32 magnitude) {
    Channel channel(index, sequence);
    channel.spectrum[channel.line(band)] = -magnitude;
    channel.estimate();
    EXPECT_EQ(channel.block.has_signal[0], 1u);
    EXPECT_EQ(channel.offsets[0], 0u);
    return channel.offsets[band];
}

TEST(PreQuant, SilentChannel) {
    Channel channel(4, WindowSequence::only_long);
    channel.block.has_signal[0] = 1;
    channel.estimate();
    EXPECT_EQ(channel.block.has_signal[0], 0u);
    for (u32 b = 0; b < 48; ++b) EXPECT_EQ(channel.offsets[b], 0u);
    EXPECT_EQ(channel.offsets[48], 77u) << "beyond max_sfb";
    EXPECT_EQ(channel.pow34[927], 0u);
    EXPECT_EQ(channel.pow34[928], 12345u) << "beyond the last coded band";
}

TEST(PreQuant, LongBlockRules) {
    constexpr auto steady = WindowSequence::only_long;
    constexpr auto start = WindowSequence::long_start;
    // Starting offset s of a magnitude: 1 -> 4, 4 -> 6 (3/4 power 13), 100 -> 10 (150), 400 -> 12 (426), 60000 -> 17.
    EXPECT_EQ(long_offset(3, steady, 2, 1), 3u);
    EXPECT_EQ(long_offset(3, steady, 20, 1), 1u);
    EXPECT_EQ(long_offset(3, start, 2, 1), 2u);
    EXPECT_EQ(long_offset(3, steady, 15, 100), 8u);  // t = 9, below 10
    EXPECT_EQ(long_offset(3, steady, 16, 100), 7u);  // high band
    EXPECT_EQ(long_offset(4, steady, 16, 100), 8u);  // begins one band later at 44.1 kHz
    EXPECT_EQ(long_offset(4, steady, 30, 60000), 16u);
    EXPECT_EQ(long_offset(5, start, 19, 100), 7u);
    EXPECT_EQ(long_offset(6, steady, 45, 100), 10u);
    EXPECT_EQ(long_offset(8, steady, 13, 4), 5u);
    EXPECT_EQ(long_offset(11, steady, 29, 4), 6u);
}

// Offsets of one band in each of the three groups (1, 2 and 5 windows) of an eight-short block.
std::vector<u32> short_offsets(u32 index, i32 magnitude) {
    Channel channel(index, WindowSequence::eight_short);
    channel.block.num_window_groups[0] = 3;
    channel.block.window_group_length[0] = {1, 2, 5};
    channel.block.max_sfb[0] = TAVIK_NumSwbShortWindow[index];
    for (u32 g = 0; g < 3; ++g) {
        for (u32 b = 0; b <= channel.block.max_sfb[0]; ++b) {
            channel.block.sfb_offset[0][short_offset_row * g + b] =
                channel.block.window_group_length[0][g] * TAVIK_SwbOffsetShort[index][b];
        }
    }
    for (const std::size_t group_start : {0u, 128u, 384u}) channel.spectrum[group_start] = magnitude;
    channel.estimate();
    return {channel.offsets[0], channel.offsets[max_bands], channel.offsets[2 * max_bands]};
}

TEST(PreQuant, ShortBlockRules) {
    using Offsets = std::vector<u32>;
    EXPECT_EQ(short_offsets(3, 1), (Offsets{1, 2, 3}));
    EXPECT_EQ(short_offsets(5, 1), (Offsets{2, 4, 4}));
    EXPECT_EQ(short_offsets(11, 1), (Offsets{4, 4, 4}));
}

}  // namespace
