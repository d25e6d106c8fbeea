// How often the rate loop counts a channel. The linker leads the library's own calls of the rate loop and of the bit
// counter through the functions here (--wrap).
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "quant/bit_counter.h"
#include "quant/rate_search.h"
#include "support/signals.h"
#include "support/stream_harness.h"

namespace tavik {

// COUNT_BITS and RUN_RATE_LOOP: the symbols of the two functions.
u32 real_count_bits(const RateBands &, const ChannelData &, Trial) __asm__("__real_" COUNT_BITS);
u32 wrapped_count_bits(const RateBands &, const ChannelData &, Trial) __asm__("__wrap_" COUNT_BITS);
u32 real_run_rate_loop(CodingBlock &, const ChannelData &, u32) __asm__("__real_" RUN_RATE_LOOP);
u32 wrapped_run_rate_loop(CodingBlock &, const ChannelData &, u32) __asm__("__wrap_" RUN_RATE_LOOP);

namespace {

u32 counts = 0;       // of the channel and frame being coded
u32 most_counts = 0;  // of any

}  // namespace

u32 wrapped_count_bits(const RateBands &bands, const ChannelData &data, Trial trial) {
    ++counts;
    return real_count_bits(bands, data, trial);
}

u32 wrapped_run_rate_loop(CodingBlock &block, const ChannelData &data, u32 channel) {
    counts = 0;
    const u32 global_gain = real_run_rate_loop(block, data, channel);
    most_counts = std::max(most_counts, counts);
    return global_gain;
}

}  // namespace tavik

namespace {

using namespace tavik_test;
using std::uint32_t;

constexpr std::size_t frames = 6;

// Full-scale noise in every other frame; in between nothing, noise of one step or a single click.
enum class Between { nothing, trifle, click };

std::vector<std::int16_t> make_alternating(Between between, unsigned channels) {
    auto pcm = make_signal(SignalKind::white_noise, channels, frames * TAVIK_FRAME_LENGTH, 48000, 7);
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        const std::size_t time = i / channels;
        const bool stays =
            time / TAVIK_FRAME_LENGTH % 2 == 1 || (between == Between::click && time % TAVIK_FRAME_LENGTH == 500);
        if (!stays) pcm[i] = between == Between::trifle ? static_cast<std::int16_t>(pcm[i] % 2) : std::int16_t{0};
    }
    return pcm;
}

std::vector<std::vector<std::int16_t>> hard_signals(unsigned channels, uint32_t rate) {
    std::vector<std::vector<std::int16_t>> signals;
    for (const SignalKind kind : all_signal_kinds) {
        signals.push_back(make_signal(kind, channels, frames * TAVIK_FRAME_LENGTH, rate, 7));
    }
    for (const Between between : {Between::nothing, Between::trifle, Between::click}) {
        signals.push_back(make_alternating(between, channels));
    }
    return signals;
}

class RateLoopEffort : public testing::TestWithParam<uint32_t> {};

// At 10400 bit/s and 48 kHz the largest ADIF header leaves the first frame less than its section data take. A quiet
// channel, within the tolerance of that, then walks from the first common_sf, 45, to the end.
TEST_P(RateLoopEffort, StaysWithinTheMostCounts) {
    const uint32_t rate = GetParam();
    tavik::most_counts = 0;
    for (uint32_t i = 0; i < 3 * 3 * 2 * 2; ++i) {  // mode, header, constant rate, priming frame
        const uint32_t mode = i % 3;
        const auto signals = hard_signals(mode == TAVIK_MODE_MONO ? 1 : 2, rate);
        for (const uint32_t bit_rate : {8000u, 10400u, 6 * rate}) {
            const EncoderConfig config{mode, rate, bit_rate, i / 3 % 3, i / 9 % 2, i / 18, 0, 0, 0, 1, {}};
            for (const auto &pcm : signals) ASSERT_NO_THROW(read_stream(config, encode_stream(config, pcm))) << i;
        }
    }
    EXPECT_GT(tavik::most_counts, 0u) << "nothing is led through here";
    EXPECT_LE(tavik::most_counts, tavik::most_counts_per_search);
    RecordProperty("most_counts", std::to_string(tavik::most_counts));
    std::cout << "Most counts of a channel and frame: " << tavik::most_counts << '\n';
}

INSTANTIATE_TEST_SUITE_P(Rate, RateLoopEffort, testing::Values(48000, 44100, 8000), testing::PrintToStringParamName());

}  // namespace
