// The search for the largest frame: signals that save bits and then need all of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

// Silence fills the reservoir; what follows is as loud and as hard to predict as it can be, with attacks.
std::vector<std::int16_t> hostile_signal(SignalKind kind, unsigned channels, unsigned sample_rate) {
    constexpr std::size_t quiet_samples = 6 * 1024 + 500, loud_samples = 6 * 1024 + 300;
    std::vector<std::int16_t> pcm(quiet_samples * channels);
    const auto loud = make_signal(kind, channels, loud_samples, sample_rate, 5);
    pcm.insert(pcm.end(), loud.begin(), loud.end());
    return pcm;
}

constexpr std::size_t least_percent_with_loans = 90;  // of 1.44 times the mean

class LargestFrame : public testing::TestWithParam<std::tuple<unsigned, unsigned>> {
 protected:
    // The largest frame of all signals in percent of the bound of this configuration; read_stream holds it to 100.
    std::size_t search(const EncoderConfig &config) {
        std::size_t largest = 0;
        for (const SignalKind kind :
             {SignalKind::white_noise, SignalKind::silence_full_scale, SignalKind::transients}) {
            const auto pcm = hostile_signal(kind, channel_count(config), config.sample_rate);
            const EncodedStream stream = encode_stream(config, pcm);
            read_stream(config, stream);
            for (const auto &frame : stream.frames) largest = std::max(largest, frame.size());
        }
        largest_ = std::max(largest_, largest);
        return 100 * largest / largest_frame(config);
    }

    std::size_t largest_ = 0;
};

TEST_P(LargestFrame, IsReachedButNotExceeded) {
    const auto [mode, header] = GetParam();
    EncoderConfig config{mode, 0, 0, header, 0, 0, 0, 0, 0, 1, {}};
    std::size_t lowest = 100, highest = 0;
    for (const unsigned rate : sample_rates) {
        config.sample_rate = rate;
        for (const unsigned bit_rate : {8000u, std::max(8000u, 2 * rate), 4 * rate, 6 * rate}) {
            config.bit_rate = bit_rate;
            for (config.constant_rate = 0; config.constant_rate < 2; ++config.constant_rate) {
                SCOPED_TRACE(testing::Message() << rate << " Hz, " << bit_rate << " bit/s, " << config.constant_rate);
                const std::size_t percent = search(config);
                lowest = std::min(lowest, percent);
                highest = std::max(highest, percent);
                // At two bits per sample the buffer is no limit: what can be borrowed is.
                const bool borrows = config.constant_rate == 0 && bit_rate == 2 * rate && bit_rate > 8000;
                EXPECT_GE(percent, borrows ? least_percent_with_loans : 0);
            }
        }
    }
    const std::size_t bound = TAVIK_MAX_FRAME_BYTES_PER_CHANNEL * channel_count(config);
    EXPECT_EQ(largest_, bound) << "the bound is not tight";
    std::cout << "mode " << mode << ", header type " << header << ": largest frame " << largest_ << " bytes, bound "
              << bound << "; over all rates " << lowest << " to " << highest << " % of the configuration's bound\n";
}

INSTANTIATE_TEST_SUITE_P(ModesAndFramings, LargestFrame,
                         testing::Combine(testing::Values(0, 1, 2), testing::Values(0, 1, 2)));

}  // namespace
