// Targets, tolerances and the reservoir.
#include "interface/bit_budget.h"

#include <gtest/gtest.h>

namespace {

using namespace tavik;

struct Budget {
    EncoderContext context;
    EncoderState &state = state_of(context);
    CodingBlock &block = state.coding;

    // A mean of 1000 bits, 125 bytes, per channel and frame.
    explicit Budget(u32 channel_mode) {
        const EncoderConfig config{channel_mode, 8000, 8000, TAVIK_HEADER_NONE, 0, 0, 0, 0, 0, 0, {}};
        EXPECT_EQ(TAVIK_Init(&context, &config), 0);
        block.mean_channel_bits = 1000;
        block.mean_frame_bytes = 125 * block.num_channels;
        block.mean_frame_bits = 1000 * block.num_channels;
        reset_bit_targets(block);
    }

    // The target of a channel after it has drawn from so many available bits, and what is left of them.
    std::pair<i32, i32> draw(i32 available, WindowSequence sequence, WindowSequence before, u32 tns_data_present,
                             u32 channel = 0) {
        reset_bit_targets(block);
        block.window_sequence[channel] = sequence;
        block.tns_data[channel].tns_data_present = tns_data_present;
        draw_from_reservoir(state, available, before, channel);
        return {block.bits_target[channel], available};
    }
};

using enum WindowSequence;

TEST(BitBudget, DrawsSharesOfTheMean) {
    Budget budget(TAVIK_MODE_MONO);
    EXPECT_EQ(budget.draw(5000, only_long, only_long, 0), std::pair(1200, 4800));
    EXPECT_EQ(budget.draw(5000, only_long, only_long, 1), std::pair(1260, 4740));
    EXPECT_EQ(budget.draw(5000, long_start, only_long, 0), std::pair(1360, 4640));
    EXPECT_EQ(budget.draw(5000, long_start, only_long, 1), std::pair(1440, 4560));
    EXPECT_EQ(budget.draw(5000, eight_short, eight_short, 0), std::pair(1200, 4800));
    EXPECT_EQ(budget.draw(5000, only_long, long_stop, 0), std::pair(1200, 4800));
    budget.block.ms_mask_present = MsMask::all;
    EXPECT_EQ(budget.draw(5000, only_long, only_long, 0), std::pair(1180, 4820));
    EXPECT_EQ(budget.draw(5000, only_long, only_long, 0, 1), std::pair(1120, 4880));
}

TEST(BitBudget, TolerancesAreATenth) {
    Budget budget(TAVIK_MODE_STEREO);
    budget.block.available_bits = 2500;
    budget.block.bits_target = {1900, 109};
    EXPECT_EQ(set_bit_tolerances(budget.block), 2500 - 2009);
    EXPECT_EQ(budget.block.bits_tolerance, (std::array{100, 10})) << "of the mean at most";
}

TEST(BitBudget, DrawsNoMoreThanThereIs) {
    Budget budget(TAVIK_MODE_MONO);
    EXPECT_EQ(budget.draw(170, long_start, only_long, 1), std::pair(1170, 0));
    EXPECT_EQ(budget.draw(0, long_start, only_long, 1), std::pair(1000, 0));
}

TEST(BitBudget, AnIndependentChannelKeepsToItsBuffer) {
    Budget budget(TAVIK_MODE_TWO_MONO);
    budget.block.mean_channel_bits = 6000;
    EXPECT_EQ(budget.draw(9000, only_long, only_long, 0), std::pair(6144, 8856));
}

TEST(BitBudget, TheReservoirFillsAndIsUsedUp) {
    Budget budget(TAVIK_MODE_STEREO);
    CodingBlock &block = budget.block;
    update_reservoir(block, 50);
    EXPECT_EQ(block.reservoir_bytes, 200);
    EXPECT_EQ(block.available_bits, 2000u + 1600);
    update_reservoir(block, 350);
    EXPECT_EQ(block.reservoir_bytes, 100);
    update_reservoir(block, 351);
    EXPECT_EQ(block.reservoir_bytes, 0);
    EXPECT_EQ(block.available_bits, 2000u);
    for (int frame = 0; frame < 5000; ++frame) update_reservoir(block, 10);
    EXPECT_EQ(block.reservoir_bytes, (1 << 20) - 1);
    EXPECT_EQ(block.available_bits, 12288u);
}

}  // namespace
