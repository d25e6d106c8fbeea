// Contexts share nothing: streams encoded side by side by many threads are those of one thread alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

EncoderConfig configuration(unsigned i) {
    const std::uint32_t rate = sample_rates[i % sample_rates.size()];
    const std::uint32_t bit_rates[] = {8000, rate, 3 * rate, 6 * rate};
    return {i % 3, rate, bit_rates[i % 4], i / 3 % 3, i / 2 % 2, i % 2, i % 5 == 0, 0, 0, i % 2, {0xA5}};
}

std::vector<std::int16_t> signal(unsigned i) {
    const EncoderConfig config = configuration(i);
    return make_signal(all_signal_kinds[i % all_signal_kinds.size()], channel_count(config), 11 * 1024 + 77,
                       config.sample_rate, i);
}

// One stream that is encoded call by call.
class Stream {
 public:
    explicit Stream(unsigned i) : config_(configuration(i)), pcm_(signal(i)) {}

    // False when there is nothing left to do.
    bool step() {
        if (is_complete_) return false;
        if (position_ == 0 && TAVIK_Init(context_.get(), &config_) != 0) return false;
        const unsigned channels = channel_count(config_);
        auto samples =
            static_cast<std::uint32_t>(std::min<std::size_t>((pcm_.size() - position_) / channels, TAVIK_FRAME_LENGTH));
        std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES> frame;
        std::uint32_t bytes = 0;
        TAVIK_Encode(context_.get(), pcm_.data() + position_, &samples, frame.data(), &bytes);
        position_ += samples * channels;
        bytes_.insert(bytes_.end(), frame.data(), frame.data() + bytes);
        is_complete_ = context_->status == TAVIK_STATUS_END_OF_STREAM;
        return true;
    }

    const std::vector<std::uint8_t> &bytes() const { return bytes_; }

 private:
    EncoderConfig config_;
    std::vector<std::int16_t> pcm_;
    std::unique_ptr<EncoderContext> context_ = std::make_unique<EncoderContext>();
    std::size_t position_ = 0;
    bool is_complete_ = false;
    std::vector<std::uint8_t> bytes_;
};

std::vector<std::uint8_t> single_threaded(unsigned i) { return encode_stream(configuration(i), signal(i)).bytes(); }

TEST(Threads, StreamsSideBySide) {
    constexpr unsigned threads = 8, streams_per_thread = 6;
    std::vector<std::vector<Stream>> streams(threads);
    for (unsigned i = 0; i < threads * streams_per_thread; ++i) streams[i % threads].emplace_back(i);

    std::latch start(threads);
    std::vector<std::jthread> workers;
    for (auto &own : streams) {
        workers.emplace_back([&own, &start] {
            start.arrive_and_wait();
            // Frame by frame, the streams take turns.
            for (bool goes_on = true; goes_on;) {
                goes_on = false;
                for (Stream &stream : own) goes_on = stream.step() || goes_on;
            }
        });
    }
    workers.clear();  // joins

    for (unsigned i = 0; i < threads * streams_per_thread; ++i) {
        EXPECT_EQ(streams[i % threads][i / threads].bytes(), single_threaded(i)) << i;
    }
}

TEST(Threads, AContextGoesFromThreadToThread) {
    constexpr unsigned number = 10;
    Stream stream(number);
    for (bool goes_on = true; goes_on;) std::jthread([&] { goes_on = stream.step(); }).join();
    EXPECT_EQ(stream.bytes(), single_threaded(number));
}

}  // namespace
