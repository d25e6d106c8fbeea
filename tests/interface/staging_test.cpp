// Samples into the lookahead, frames along the delay line.
#include "interface/staging.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using namespace tavik;

std::vector<i16> random_samples(std::size_t count) {
    std::mt19937 random(7);
    std::vector<i16> samples(count);
    for (auto &x : samples) x = static_cast<i16>(random());
    samples.front() = -32768;
    samples.back() = 32767;
    return samples;
}

class Staging : public testing::TestWithParam<u32> {};

TEST_P(Staging, TakesCountSamplesThenSilenceAndMovesTheFrames) {
    const u32 channels = GetParam();
    const std::vector<i16> pcm = random_samples(frame_length * channels);
    for (const u32 count : {0u, 1u, 7u, 8u, 9u, 500u, 1016u, 1023u, 1024u}) {
        static EncoderState state;
        state.coding.num_channels = channels;
        i32 value = 0;
        for (auto &history : state.time_history) {
            for (i32 &x : history) x = ++value;
        }
        for (auto &lookahead : state.lookahead_input) {
            for (i32 &x : lookahead) x = ++value;
        }
        const auto history = state.time_history;
        const auto lookahead = state.lookahead_input;
        // No more than the samples that are there may be read.
        const std::vector<i16> input(pcm.begin(), pcm.begin() + count * channels);
        stage_input(state, input.data(), count);
        for (u32 channel = 0; channel < channels; ++channel) {
            for (u32 i = 0; i < frame_length; ++i) {
                ASSERT_EQ(state.time_history[channel][i], history[channel][frame_length + i]);
                ASSERT_EQ(state.time_history[channel][frame_length + i], lookahead[channel][i]);
                ASSERT_EQ(state.lookahead_input[channel][i], i < count ? pcm[i * channels + channel] : 0)
                    << "sample " << i << " of " << count;
            }
        }
        if (channels == 1) {
            EXPECT_EQ(state.time_history[1], history[1]);
            EXPECT_EQ(state.lookahead_input[1], lookahead[1]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Channels, Staging, testing::Values(1, 2));

}  // namespace
