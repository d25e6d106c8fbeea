// The search for the largest frame: signals that save bits and then need all of them.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

// Silence fills the reservoir; what follows is as loud and as hard to predict as it can be, with attacks. Returns the
// largest frame in percent of the bound of the configuration, which every frame has been held to.
std::size_t search(const EncoderConfig &config) {
    std::size_t largest = 0;
    for (const SignalKind kind : {SignalKind::white_noise, SignalKind::silence_full_scale}) {
        const auto loud = make_signal(kind, channel_count(config), 5 * 1024 + 300, config.sample_rate, 5);
        std::vector<std::int16_t> pcm((6 * 1024 + 500) * channel_count(config));
        pcm.insert(pcm.end(), loud.begin(), loud.end());
        const EncodedStream stream = encode_stream(config, pcm);
        read_stream(config, stream);
        for (const auto &frame : stream.frames) largest = std::max(largest, frame.size());
    }
    return 100 * largest / largest_frame(config);
}

TEST(LargestFrame, IsReachedButNotExceeded) {
    for (const std::uint32_t rate : sample_rates) {
        for (std::uint32_t i = 0; i < 3 * 3; ++i) {  // mode, header
            SCOPED_TRACE(testing::Message() << rate << " Hz, mode " << i % 3 << ", header " << i / 3);
            EncoderConfig config{i % 3, rate, 6 * rate, i / 3, 0, 0, 0, 0, 0, 1, {}};
            EXPECT_EQ(largest_frame(config), TAVIK_MAX_FRAME_BYTES_PER_CHANNEL * channel_count(config));
            EXPECT_GE(search(config), 97u);
            config.constant_rate = 1;
            EXPECT_EQ(search(config), 100u);
            // At two bits per sample the buffer is no limit: what can be borrowed is.
            config.bit_rate = 2 * rate;
            config.constant_rate = 0;
            EXPECT_GE(search(config), 90u);
        }
    }
}

}  // namespace
