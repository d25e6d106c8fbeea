// docs/host-guide.md: its C functions encode, libavcodec plays, and what comes out is what its tables say.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "reference_decoder.h"
#include "support/signals.h"
#include "support/stream_harness.h"

extern "C" {
using FetchSamples = std::uint32_t (*)(void *host, std::int16_t *pcm);
using TakeFrame = void (*)(void *host, const std::uint8_t *frame, std::uint32_t bytes);
std::int32_t encode_stream(EncoderContext *context, const EncoderConfig *config, FetchSamples fetch, TakeFrame take,
                           void *host);
std::uint32_t largest_frame_bytes(const EncoderConfig *config);
std::uint32_t audio_specific_config(const EncoderConfig *config, std::uint8_t *bytes);
}

namespace {

using namespace tavik_test;
using Bytes = std::vector<std::uint8_t>;
using Row = std::vector<std::string>;

constexpr std::size_t frame_length = TAVIK_FRAME_LENGTH;

// The rows, by sampling rate, of the table of the guide whose second column has the given heading.
std::map<std::uint32_t, Row> table_with(const std::string &heading) {
    std::ifstream guide(HOST_GUIDE);
    std::map<std::uint32_t, Row> rows;
    bool inside = false;
    for (std::string line; std::getline(guide, line);) {
        Row row;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '|');) {
            const auto first = cell.find_first_not_of(" `");
            row.push_back(first == std::string::npos ? ""
                                                     : cell.substr(first, cell.find_last_not_of(" `") + 1 - first));
        }
        if (row.size() < 3) {
            inside = false;
        } else if (row[1] == "`sample_rate" || row[1] == "sample_rate") {
            inside = row[2] == heading;
        } else if (inside && std::isdigit(static_cast<unsigned char>(row[1][0])) != 0) {
            rows[static_cast<std::uint32_t>(std::stoul(row[1]))] = row;
        }
    }
    return rows;
}

Bytes bytes_of(const std::string &hexadecimal) {
    std::istringstream stream(hexadecimal);
    Bytes bytes;
    for (unsigned byte = 0; stream >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}

// A host of the guide's encode_stream.
struct Host {
    unsigned channels;
    std::vector<std::int16_t> pcm;
    std::size_t given = 0;  // samples per channel
    std::vector<Bytes> frames{};
    std::vector<std::size_t> given_at{};  // what had been given when a frame came

    static std::uint32_t fetch(void *host, std::int16_t *pcm) {
        auto &self = *static_cast<Host *>(host);
        const std::size_t samples = std::min(self.pcm.size() / self.channels - self.given, frame_length);
        std::copy_n(self.pcm.data() + self.given * self.channels, samples * self.channels, pcm);
        self.given += samples;
        return static_cast<std::uint32_t>(samples);
    }
    static void take(void *host, const std::uint8_t *frame, std::uint32_t bytes) {
        auto &self = *static_cast<Host *>(host);
        self.frames.emplace_back(frame, frame + bytes);
        self.given_at.push_back(self.given);
    }
};

Host encode(const EncoderConfig &config, std::vector<std::int16_t> pcm) {
    static EncoderContext context;
    Host host{channel_count(config), std::move(pcm)};
    EXPECT_EQ(encode_stream(&context, &config, Host::fetch, Host::take, &host), 0);
    return host;
}

// Decoded samples, by channel.
std::vector<std::vector<float>> decode(const EncoderConfig &config, const Bytes &description,
                                       const std::vector<Bytes> &frames) {
    tavik_fuzz::ReferenceDecoder decoder;
    decoder.start(config, description);
    std::vector<std::vector<float>> channels(channel_count(config));
    for (const Bytes &frame : frames) {
        const auto decoded = decoder.decode(frame, 0);
        for (std::size_t c = 0; c < channels.size(); ++c) {
            channels[c].insert(channels[c].end(), decoded.channels[c].begin(), decoded.channels[c].end());
        }
    }
    return channels;
}

EncoderConfig raw_config(std::uint32_t rate, std::uint32_t mode, std::uint32_t priming) {
    return {mode, rate, 3 * rate, TAVIK_HEADER_NONE, 0, priming, 0, 0, 0, 0, {}};
}

// A click at one sample of each channel, in the second half of the stream for the second one.
constexpr std::size_t clicks[] = {5000, 9000};

std::vector<std::int16_t> signal_with_clicks(unsigned channels, unsigned rate) {
    auto pcm = make_signal(SignalKind::dither, channels, 12000, rate, 1);
    for (std::size_t c = 0; c < channels; ++c) pcm[clicks[c] * channels + c] = 30000;
    return pcm;
}

std::size_t place_of_peak(const std::vector<float> &samples) {
    const auto less = [](float a, float b) { return std::abs(a) < std::abs(b); };
    return static_cast<std::size_t>(std::max_element(samples.begin(), samples.end(), less) - samples.begin());
}

TEST(HostGuide, StreamsAreWhatAnyOtherHostGets) {
    for (std::uint32_t priming = 0; priming < 2; ++priming) {
        const EncoderConfig config = raw_config(44100, TAVIK_MODE_STEREO, priming);
        for (const std::size_t samples : std::initializer_list<std::size_t>{0, 1, 1024, 2048, 5000}) {
            const auto pcm = make_signal(SignalKind::music, 2, samples, 44100, 1);
            const std::size_t inputs = (samples + frame_length - 1) / frame_length;
            const Host host = encode(config, pcm);
            EXPECT_EQ(host.frames, encode_stream(config, pcm).frames);
            EXPECT_EQ(host.frames.size(), inputs == 0 ? 0 : inputs == 1 ? 2 : inputs + priming) << samples;
        }
    }
}

// The clicks come out in the channel and at the place, 1024 samples later with the priming frame, and the frame that
// holds them comes as early as the table says.
TEST(HostGuide, DecoderDescriptionsAndLatencies) {
    const auto descriptions = table_with("index");
    const auto latencies = table_with("samples");
    ASSERT_EQ(descriptions.size(), 9u);
    ASSERT_EQ(latencies.size(), 9u);
    for (const auto &[rate, row] : descriptions) {
        EXPECT_EQ(row[2], std::to_string(TAVIK_SampleRateIndex(rate)));
        for (std::uint32_t mode = 0; mode < 3; ++mode) {
            for (std::uint32_t priming = 0; priming < 2; ++priming) {
                SCOPED_TRACE(testing::Message() << rate << " Hz, mode " << mode << ", priming " << priming);
                const EncoderConfig config = raw_config(rate, mode, priming);
                Bytes description(9);
                description.resize(audio_specific_config(&config, description.data()));
                EXPECT_EQ(description, bytes_of(row[3 + mode]));

                const Host host = encode(config, signal_with_clicks(channel_count(config), rate));
                const auto decoded = decode(config, description, host.frames);
                for (std::size_t c = 0; c < decoded.size(); ++c) {
                    const std::size_t place = place_of_peak(decoded[c]);
                    EXPECT_EQ(place, clicks[c] + 1024 * priming);
                    const std::size_t frame = place / frame_length;
                    const std::size_t latency = host.given_at[frame] - (frame - priming) * frame_length;
                    EXPECT_EQ(latencies.at(rate)[2], std::to_string(latency));
                    char text[16];
                    std::snprintf(text, sizeof text, "%.1f", 1e3 * static_cast<double>(latency) / rate);
                    EXPECT_EQ(latencies.at(rate)[3], text);
                }
            }
        }
    }
}

TEST(HostGuide, LargestFrames) {
    for (std::uint32_t mode = 0; mode < 3; ++mode) {
        for (std::uint32_t constant_rate = 0; constant_rate < 2; ++constant_rate) {
            for (const std::uint32_t bit_rate : {8000u, 63999u, 150000u, 264600u}) {
                const EncoderConfig config{mode, 44100, bit_rate, 0, constant_rate, 0, 0, 0, 0, 0, {}};
                EXPECT_EQ(largest_frame_bytes(&config), largest_frame(config));
            }
        }
    }
}

// The columns of the table of bit rates that TAVIK_Init decides.
TEST(HostGuide, BitRates) {
    const auto rows = table_with("lowest");
    ASSERT_EQ(rows.size(), 9u);
    for (const auto &[rate, row] : rows) {
        static EncoderContext context;
        const auto accepts = [&, rate = rate](std::uint32_t bit_rate) {
            EncoderConfig config = raw_config(rate, TAVIK_MODE_MONO, 0);
            config.bit_rate = bit_rate;
            return TAVIK_Init(&context, &config) == 0;
        };
        const auto number = [&row = row](std::size_t column) {
            std::string digits = row[column];
            std::erase(digits, ',');
            return static_cast<std::uint32_t>(std::stoul(digits));
        };
        EXPECT_TRUE(accepts(number(2)) && !accepts(number(2) - 1));
        EXPECT_TRUE(accepts(number(3)) && accepts(number(4)) && accepts(number(6)) && !accepts(number(6) + 1)) << rate;
    }
}

}  // namespace
