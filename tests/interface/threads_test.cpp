// Contexts share nothing: streams encoded side by side by many threads are those of one thread alone.
#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

#include "support/golden_streams.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

std::vector<std::uint8_t> encode(const GoldenStream &golden) {
    return encode_stream(golden.config, golden.pcm()).bytes();
}

TEST(Threads, StreamsSideBySide) {
    constexpr std::size_t threads = 8, streams = 48;
    const auto golden = golden_streams();
    std::vector<std::vector<std::uint8_t>> encoded(streams);
    std::latch start(threads);
    std::vector<std::jthread> workers;
    for (std::size_t t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            start.arrive_and_wait();
            for (std::size_t i = t; i < streams; i += threads) encoded[i] = encode(golden[4 * i]);
        });
    }
    workers.clear();  // joins
    for (std::size_t i = 0; i < streams; ++i) EXPECT_EQ(encoded[i], encode(golden[4 * i])) << golden[4 * i].name;
}

TEST(Threads, AContextGoesFromThreadToThread) {
    const GoldenStream golden = golden_streams()[10];
    const auto pcm = golden.pcm(5 * TAVIK_FRAME_LENGTH);
    const std::size_t frame = pcm.size() / 5;
    CheckedEncoder encoder;
    encoder.init(golden.config);
    EncodedStream stream;
    for (std::size_t call = 0; call < 7; ++call) {
        std::jthread([&] {
            const auto input = call < 5 ? std::span(pcm).subspan(call * frame, frame) : std::span<const std::int16_t>();
            const auto bytes = encoder.encode(input, call < 5 ? TAVIK_FRAME_LENGTH : 0);
            if (!bytes.empty()) stream.frames.emplace_back(bytes.begin(), bytes.end());
        }).join();
    }
    EXPECT_EQ(stream.frames, encode_stream(golden.config, pcm).frames);
}

}  // namespace
