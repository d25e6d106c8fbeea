// The C functions of docs/host-guide.md do what the page says, and its tables of delays and decoder descriptions are
// right.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "support/reference_decoder.h"
#include "support/signals.h"
#include "support/stream_harness.h"

extern "C" {
using FetchSamples = std::uint32_t (*)(void *host, std::int16_t *pcm);
using TakeFrame = void (*)(void *host, const std::uint8_t *frame, std::uint32_t bytes);
std::int32_t encode_stream(EncoderContext *context, const EncoderConfig *config, FetchSamples fetch, TakeFrame take,
                           void *host);
std::uint32_t max_frame_bytes(const EncoderConfig *config);
std::uint32_t audio_specific_config(const EncoderConfig *config, std::uint8_t *bytes);
}

namespace {

using namespace tavik_test;

// A host of stereo for the guide's encode_stream.
struct Host {
    std::vector<std::int16_t> pcm;
    std::size_t given = 0;  // samples per channel
    std::vector<std::vector<std::uint8_t>> frames{};

    static std::uint32_t fetch(void *host, std::int16_t *pcm) {
        auto &self = *static_cast<Host *>(host);
        const std::size_t samples = std::min<std::size_t>(self.pcm.size() / 2 - self.given, TAVIK_FRAME_LENGTH);
        std::copy_n(self.pcm.data() + 2 * self.given, 2 * samples, pcm);
        self.given += samples;
        return static_cast<std::uint32_t>(samples);
    }
    // The latency: a frame comes when all samples that it decodes to, and 2048 more, have been given.
    static void take(void *host, const std::uint8_t *frame, std::uint32_t bytes) {
        auto &self = *static_cast<Host *>(host);
        EXPECT_EQ(self.given, std::min(1024 * self.frames.size() + 3072, self.pcm.size() / 2));
        self.frames.emplace_back(frame, frame + bytes);
    }
};

EncoderConfig config_of(std::uint32_t rate, std::uint32_t mode, std::uint32_t bit_rate) {
    return {mode, rate, bit_rate, TAVIK_HEADER_NONE, 0, 0, 0, 0, 0, 0, {}};
}

TEST(HostGuide, Streams) {
    const EncoderConfig config = config_of(44100, TAVIK_MODE_STEREO, 64000);
    for (const std::size_t samples : std::initializer_list<std::size_t>{0, 1, 1024, 2048, 5000}) {
        Host host{make_signal(SignalKind::music, 2, samples, 44100, 1)};
        static EncoderContext context;
        EXPECT_EQ(encode_stream(&context, &config, Host::fetch, Host::take, &host), 0);
        EXPECT_EQ(host.frames, encode_stream(config, host.pcm).frames) << samples;
    }
}

TEST(HostGuide, LargestFrames) {
    for (const std::uint32_t bit_rate : {8000u, 63999u, 150000u, 264600u}) {
        for (std::uint32_t i = 0; i < 3 * 2; ++i) {
            EncoderConfig config = config_of(44100, i % 3, bit_rate);
            config.constant_rate = i / 3;
            EXPECT_EQ(max_frame_bytes(&config), largest_frame(config)) << bit_rate << ' ' << i;
        }
    }
}

std::string cell(const std::vector<std::uint8_t> &bytes) {
    std::string text;
    for (const unsigned byte : bytes) {
        char hexadecimal[4];
        std::snprintf(hexadecimal, sizeof hexadecimal, "%02X ", byte);
        text += hexadecimal;
    }
    text.back() = '`';
    return " `" + text + " |";
}

// The latency is that of Host; the descriptions are what decoders take in other tests.
TEST(HostGuide, Tables) {
    std::ifstream file(HOST_GUIDE);
    const std::string guide(std::istreambuf_iterator<char>(file), {});
    for (const std::uint32_t rate : sample_rates) {
        std::string row = "\n| " + std::to_string(rate) + " | " + std::to_string(TAVIK_SampleRateIndex(rate)) + " |";
        for (std::uint32_t mode = 0; mode < 3; ++mode) {
            const EncoderConfig config = config_of(rate, mode, 8000);
            std::vector<std::uint8_t> bytes(9);
            bytes.resize(audio_specific_config(&config, bytes.data()));
            EXPECT_EQ(bytes, audio_specific_config(config));
            row += cell(bytes);
        }
        char delays[64];
        std::snprintf(delays, sizeof delays, "\n| %u | 3072 | %.1f | %.1f |", rate, 3072e3 / rate, 1024e3 / rate);
        for (const std::string &line : {row, std::string(delays)}) {
            EXPECT_NE(guide.find(line + '\n'), std::string::npos) << line;
        }
    }
}

}  // namespace
