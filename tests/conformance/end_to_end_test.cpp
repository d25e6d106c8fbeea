// What comes out of two independent decoders is what went in: every rate, mode, framing and kind of stream, with
// speech, music, transients, silence and noise. The decoders are libavcodec and libfaad.
#include <gtest/gtest.h>
#include <neaacdec.h>

#include <cmath>

#include "support/golden_streams.h"
#include "support/reference_decoder.h"
#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;
using Samples = std::vector<std::int16_t>;

struct Material {
    Samples pcm;              // interleaved
    std::size_t quality_end;  // samples per channel of speech, music and transients, whose quality is measured
};

Material make_material(unsigned channels, unsigned rate) {
    Material material{};
    Samples speech = read_recording("voice_mono");
    speech.resize(rate / 2);
    for (const std::int16_t sample : speech) {
        for (unsigned c = 0; c < channels; ++c) {
            material.pcm.push_back(static_cast<std::int16_t>(c == 0 ? sample : sample / 2));
        }
    }
    const auto append = [&](SignalKind kind, std::size_t samples) {
        const Samples signal = make_signal(kind, channels, samples, rate, 11);
        material.pcm.insert(material.pcm.end(), signal.begin(), signal.end());
    };
    append(SignalKind::music, rate / 2);
    append(SignalKind::transients, rate / 4);
    material.quality_end = material.pcm.size() / channels;
    append(SignalKind::silence, rate / 4);
    append(SignalKind::white_noise, rate / 4);
    return material;
}

// libfaad leaves out the first frame, and gives mono as two equal channels.
class Faad {
 public:
    // `first` is the first frame of the stream, with the header that it may have.
    Faad(const EncoderConfig &config, std::vector<std::uint8_t> first) : channels_(channel_count(config)) {
        NeAACDecConfiguration *settings = NeAACDecGetCurrentConfiguration(decoder_);
        settings->dontUpSampleImplicitSBR = 1;
        NeAACDecSetConfiguration(decoder_, settings);
        unsigned long rate = 0;
        unsigned char channels = 0;
        if (config.header_type == TAVIK_HEADER_NONE) {
            auto description = audio_specific_config(config);
            EXPECT_EQ(NeAACDecInit2(decoder_, description.data(), description.size(), &rate, &channels), 0);
        } else {
            EXPECT_GE(NeAACDecInit(decoder_, first.data(), first.size(), &rate, &channels), 0);
        }
    }
    ~Faad() { NeAACDecClose(decoder_); }
    Faad(const Faad &) = delete;
    Faad &operator=(const Faad &) = delete;

    // Appends the samples that a frame decodes to, in units of a 16-bit sample. ADIF's header is not part of a frame.
    void decode(std::span<const std::uint8_t> frame, std::vector<float> &decoded) {
        std::vector<std::uint8_t> bytes(frame.begin(), frame.end());
        NeAACDecFrameInfo info;
        const auto *samples =
            static_cast<const std::int16_t *>(NeAACDecDecode(decoder_, &info, bytes.data(), bytes.size()));
        ASSERT_EQ(info.error, 0) << NeAACDecGetErrorMessage(info.error);
        ASSERT_EQ(info.bytesconsumed, bytes.size());
        for (unsigned long i = 0; i < info.samples; i += info.channels) {
            decoded.insert(decoded.end(), samples + i, samples + i + channels_);
        }
    }

 private:
    NeAACDecHandle decoder_ = NeAACDecOpen();
    unsigned channels_;
};

// The decoded stream, interleaved, in units of a 16-bit sample.
struct Decoded {
    std::vector<float> from_libavcodec, from_faad;
};

Decoded decode(const EncoderConfig &config, const EncodedStream &stream, const std::vector<Frame> &frames) {
    static ReferenceDecoder libavcodec;
    libavcodec.start(config);
    Faad faad(config, stream.frames.front());
    Decoded decoded;
    for (std::size_t f = 0; f < frames.size(); ++f) {
        const std::size_t header_bytes = frames[f].adif_header_bytes;
        const DecodedFrame channels = libavcodec.decode(stream.frames[f], header_bytes);
        for (std::size_t i = 0; i < TAVIK_FRAME_LENGTH; ++i) {
            for (const auto &samples : channels) decoded.from_libavcodec.push_back(32768 * samples[i]);
        }
        faad.decode(std::span(stream.frames[f]).subspan(header_bytes), decoded.from_faad);
    }
    return decoded;
}

// Signal-to-noise ratio in dB over samples `first` to `last` of the input, which stand `delay` samples later in
// `decoded`; all counted over both channels.
double snr(const Samples &input, const std::vector<float> &decoded, std::size_t first, std::size_t last,
           std::ptrdiff_t delay) {
    double signal = 0, noise = 0;
    for (std::size_t i = first; i < last; ++i) {
        const double x = input[i];
        const double y = decoded.at(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(i) + delay));
        signal += x * x;
        noise += (x - y) * (x - y);
    }
    return 10 * std::log10(signal / noise);
}

// A few dB below what the streams have on this material by bits per sample.
double least_snr(double bits_per_sample) {
    if (bits_per_sample >= 6) return 27;
    if (bits_per_sample >= 1.4) return 13;
    return bits_per_sample >= 0.5 ? 9 : 3;
}

void check(const EncoderConfig &config, const Material &material) {
    const EncodedStream stream = encode_stream(config, material.pcm);
    const std::vector<Frame> frames = read_stream(config, stream);
    const Decoded decoded = decode(config, stream, frames);
    const std::size_t channels = channel_count(config), frame = TAVIK_FRAME_LENGTH * channels;
    ASSERT_EQ(decoded.from_libavcodec.size(), frames.size() * frame);
    ASSERT_EQ(decoded.from_faad.size(), (frames.size() - 1) * frame);
    const auto one_frame = static_cast<std::ptrdiff_t>(frame);
    const std::ptrdiff_t delay = config.emit_priming_frame == 1 ? one_frame : 0;
    const double least = least_snr(static_cast<double>(config.bit_rate) / config.sample_rate);
    const std::size_t first = 2 * frame, last = material.quality_end * channels;
    EXPECT_GE(snr(material.pcm, decoded.from_libavcodec, first, last, delay), least);
    EXPECT_GE(snr(material.pcm, decoded.from_faad, first, last, delay - one_frame), least);
}

class EndToEnd : public testing::TestWithParam<std::uint32_t> {};

TEST_P(EndToEnd, DecodesToTheInput) {
    const std::uint32_t rate = GetParam();
    for (std::uint32_t mode = 0; mode < 3; ++mode) {
        const Material material = make_material(mode == TAVIK_MODE_MONO ? 1 : 2, rate);
        for (const std::uint32_t bit_rate : {8000u, rate * 3 / 2, 6 * rate}) {
            for (std::uint32_t i = 0; i < 3 * 2 * 2; ++i) {
                const EncoderConfig config{mode, rate, bit_rate, i / 4, i / 2 % 2, i % 2, 0, 0, 0, 0, {}};
                SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << bit_rate << " bit/s per channel, header "
                                                << config.header_type << ", constant " << config.constant_rate
                                                << ", priming " << config.emit_priming_frame);
                check(config, material);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rate, EndToEnd, testing::ValuesIn(sample_rates), testing::PrintToStringParamName());

}  // namespace
