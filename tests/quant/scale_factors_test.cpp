// What scale-factor estimation leaves of a silent channel, and where it ends. Its rules: tests/tables/tuning_test.cpp.
#include <gtest/gtest.h>

#include <vector>

#include "common/encoder_context.h"

namespace {

using namespace tavik;

TEST(PreQuant, SilentChannel) {
    constexpr u32 hz_44100 = 4, bands = 48;
    TavikCodingBlock block{};
    block.sampling_rate_index = hz_44100;
    block.num_window_groups[0] = 1;
    block.window_group_length[0] = {1, 0, 0};
    block.max_sfb[0] = bands;
    for (u32 b = 0; b <= bands; ++b) block.sfb_offset[0][b] = TAVIK_SwbOffsetLong[hz_44100][b];
    block.has_signal[0] = 1;
    std::vector<i32> spectrum(1024);
    std::vector<u32> pow34(1024, 12345), offsets(band_array_size, 77);
    TAVIK_PreQuant(&block, pow34.data(), spectrum.data(), offsets.data(), 0);
    EXPECT_EQ(block.has_signal[0], 0u);
    for (u32 b = 0; b < bands; ++b) EXPECT_EQ(offsets[b], 0u);
    EXPECT_EQ(offsets[bands], 77u) << "beyond max_sfb";
    EXPECT_EQ(pow34[927], 0u);
    EXPECT_EQ(pow34[928], 12345u) << "beyond the last coded band";

    spectrum[5] = -1;
    TAVIK_PreQuant(&block, pow34.data(), spectrum.data(), offsets.data(), 0);
    EXPECT_EQ(block.has_signal[0], 1u);
    EXPECT_EQ(offsets[0], 0u);
    EXPECT_EQ(offsets[1], 3u);  // starts from 4, and is 1 finer
}

}  // namespace
