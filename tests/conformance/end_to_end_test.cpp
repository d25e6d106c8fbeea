// What comes out of two independent decoders is what went in: every rate, mode, framing and kind of stream, with
// speech, music, transients, silence and noise. The decoders are the programs ffmpeg and faad.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;
using Bytes = std::vector<std::uint8_t>;
using Samples = std::vector<std::int16_t>;
namespace fs = std::filesystem;

// A directory of this process, removed at its end.
class WorkDirectory {
 public:
    WorkDirectory() : path_(fs::temp_directory_path() / ("tavik_end_to_end_" + std::to_string(getpid()))) {
        fs::create_directories(path_);
    }
    ~WorkDirectory() { fs::remove_all(path_); }
    WorkDirectory(const WorkDirectory &) = delete;
    WorkDirectory &operator=(const WorkDirectory &) = delete;
    std::string file(const std::string &name) const { return (path_ / name).string(); }

 private:
    fs::path path_;
};

const WorkDirectory &work() {
    static const WorkDirectory directory;
    return directory;
}

std::string read_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Samples read_samples(const std::string &path) {
    const std::string bytes = read_text(path);
    Samples samples(bytes.size() / sizeof(std::int16_t));
    std::copy_n(bytes.data(), samples.size() * sizeof(std::int16_t), reinterpret_cast<char *>(samples.data()));
    return samples;
}

void write_bytes(const std::string &path, const Bytes &bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Runs a shell command that must succeed and say nothing at all; returns the 16-bit samples in its output file.
Samples run_quietly(const std::string &command, const std::string &output) {
    const std::string messages = work().file("messages");
    const int status = std::system((command + " >" + messages + " 2>&1").c_str());
    EXPECT_EQ(status, 0) << command;
    EXPECT_EQ(read_text(messages), "") << command;
    return read_samples(output);
}

// ---- Input ---------------------------------------------------------------------------------------------------------

// Debian's recording of a speaker, at any rate.
Samples recorded_speech(unsigned rate) {
    const std::string raw = work().file("speech.raw");
    return run_quietly(
        "ffmpeg -v error -y -i " TAVIK_SPEECH_RECORDING " -ac 1 -ar " + std::to_string(rate) + " -f s16le " + raw, raw);
}

struct Material {
    Samples pcm;              // interleaved
    std::size_t quality_end;  // samples per channel of speech, music and transients, whose quality is measured
};

Material make_material(unsigned channels, unsigned rate) {
    Material material{};
    for (const std::int16_t sample : recorded_speech(rate)) {
        for (unsigned c = 0; c < channels; ++c) {
            material.pcm.push_back(static_cast<std::int16_t>(c == 0 ? sample : sample / 2));
        }
    }
    const auto append = [&](SignalKind kind, std::size_t samples) {
        const Samples signal = make_signal(kind, channels, samples, rate, 11);
        material.pcm.insert(material.pcm.end(), signal.begin(), signal.end());
    };
    append(SignalKind::music, rate);
    append(SignalKind::transients, rate / 2);
    material.quality_end = material.pcm.size() / channels;
    append(SignalKind::silence, rate / 4);
    append(SignalKind::white_noise, rate / 4);
    return material;
}

// ---- Decoders ------------------------------------------------------------------------------------------------------

// The stream with an ADTS header on every frame, for a decoder that reads no other framing. Two single channels need
// their program config element in every frame: with its identifier it takes just 7 bytes.
Bytes reframed_as_adts(const EncoderConfig &config, const EncodedStream &stream, const std::vector<Frame> &frames) {
    EncoderConfig adts_config = config;
    adts_config.header_type = TAVIK_HEADER_ADTS;
    const Bytes model = encode_stream(adts_config, Samples(2 * 4096)).frames.front();
    const std::ptrdiff_t head = config.channel_mode == TAVIK_MODE_TWO_MONO ? 14 : 7;
    Bytes result;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const Bytes &frame = stream.frames[i];
        Bytes adts(model.begin(), model.begin() + head);
        adts.insert(adts.end(), frame.begin() + frames[i].header_bits / 8, frame.end());
        const std::size_t length = adts.size();
        adts[3] = static_cast<std::uint8_t>((adts[3] & 0xFC) | length >> 11);
        adts[4] = static_cast<std::uint8_t>(length >> 3);
        adts[5] = static_cast<std::uint8_t>((adts[5] & 0x1F) | (length & 7) << 5);
        result.insert(result.end(), adts.begin(), adts.end());
    }
    return result;
}

Samples decode_with_ffmpeg(const Bytes &adts) {
    const std::string input = work().file("ffmpeg.aac");
    const std::string output = work().file("ffmpeg.raw");
    write_bytes(input, adts);
    return run_quietly(
        "ffmpeg -v warning -xerror -err_detect explode -y -f aac -i pipe:0 -f s16le " + output + " <" + input, output);
}

// What faad does to a stream beside decoding it.
struct FaadHabits {
    bool mono_as_stereo;  // it gives mono as two equal channels
    bool doubled_rate;    // at 24 kHz and below it doubles the sampling rate
    // Where sample 0 of the input comes out, before that of a stream without delay: it leaves out the first frame, and
    // its doubling filter delays by 962 of its samples.
    std::ptrdiff_t advance() const { return doubled_rate ? 1024 - 962 / 2 : 1024; }
};

FaadHabits faad_habits(const EncoderConfig &config) {
    return {config.channel_mode == TAVIK_MODE_MONO, config.sample_rate <= 24000};
}

// The decoded stream with its own channels, at its own rate.
Samples decode_with_faad(const Bytes &stream, FaadHabits habits) {
    const std::string input = work().file("faad.aac");
    const std::string output = work().file("faad.raw");
    write_bytes(input, stream);
    const Samples given = run_quietly("faad -q -f 2 -b 1 -o " + output + " " + input, output);
    const std::size_t channels_kept = habits.mono_as_stereo ? 1 : 2;
    const std::size_t step = habits.doubled_rate ? 4 : 2;
    Samples samples;
    for (std::size_t i = 0; i + step <= given.size(); i += step) {
        samples.insert(samples.end(), given.begin() + static_cast<std::ptrdiff_t>(i),
                       given.begin() + static_cast<std::ptrdiff_t>(i + channels_kept));
    }
    return samples;
}

// ---- Comparison ----------------------------------------------------------------------------------------------------

// Signal-to-noise ratio in dB over samples per channel first ... last of `input`, which stand `delay` samples later in
// `decoded`.
double snr(const Samples &input, const Samples &decoded, unsigned channels, std::size_t first, std::size_t last,
           std::ptrdiff_t delay) {
    double signal = 0, noise = 0;
    const std::ptrdiff_t shift = delay * static_cast<std::ptrdiff_t>(channels);
    for (std::size_t i = first * channels; i < last * channels; ++i) {
        const double x = input[i];
        const double y = decoded[static_cast<std::size_t>(static_cast<std::ptrdiff_t>(i) + shift)];
        signal += x * x;
        noise += (x - y) * (x - y);
    }
    return 10 * std::log10(signal / noise);
}

// A few dB below what the streams have on this material by bits per sample: 31 to 47 (6), 18 to 25 (1.5), 10 to 20 (0.5
// to 1) and 4.6 to 13 dB (below).
double least_snr(double bits_per_sample) {
    if (bits_per_sample >= 6) return 27;
    if (bits_per_sample >= 1.4) return 15;
    return bits_per_sample >= 0.5 ? 9 : 3;
}

using Parameters = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>;  // rate, mode, header type

class EndToEnd : public testing::TestWithParam<Parameters> {
 protected:
    void check(const EncoderConfig &config) {
        const unsigned channels = channel_count(config);
        const EncodedStream stream = encode_stream(config, material_.pcm);
        const std::vector<Frame> frames = read_stream(config, stream);
        const bool adts = config.header_type == TAVIK_HEADER_ADTS;
        const Bytes as_adts = adts ? stream.bytes() : reframed_as_adts(config, stream, frames);

        const std::ptrdiff_t delay = config.emit_priming_frame == 1 ? 1024 : 0;
        const double least = least_snr(static_cast<double>(config.bit_rate) / config.sample_rate);
        const Samples from_ffmpeg = decode_with_ffmpeg(as_adts);
        ASSERT_EQ(from_ffmpeg.size(), frames.size() * 1024 * channels);
        EXPECT_GE(snr(material_.pcm, from_ffmpeg, channels, 2048, material_.quality_end, delay), least);

        const bool adif = config.header_type == TAVIK_HEADER_ADIF;
        const FaadHabits habits = faad_habits(config);
        const Samples from_faad = decode_with_faad(adif ? stream.bytes() : as_adts, habits);
        ASSERT_EQ(from_faad.size(), (frames.size() - 1) * 1024 * channels);
        EXPECT_GE(snr(material_.pcm, from_faad, channels, 2048, material_.quality_end, delay - habits.advance()),
                  least);
    }

    Material material_;
};

TEST_P(EndToEnd, DecodesToTheInput) {
    const auto [rate, mode, header] = GetParam();
    material_ = make_material(mode == TAVIK_MODE_MONO ? 1 : 2, rate);
    for (const std::uint32_t bit_rate : {8000u, std::max(rate * 3 / 2, 8000u), 6 * rate}) {
        for (std::uint32_t constant_rate = 0; constant_rate < 2; ++constant_rate) {
            for (std::uint32_t priming = 0; priming < 2; ++priming) {
                SCOPED_TRACE(testing::Message() << bit_rate << " bit/s per channel, constant " << constant_rate
                                                << ", priming " << priming);
                check({mode, rate, bit_rate, header, constant_rate, priming, 0, 0, 0, 0, {}});
            }
        }
    }
}

std::string name_of(const testing::TestParamInfo<Parameters> &info) {
    static constexpr const char *modes[] = {"_mono", "_stereo", "_two_mono"};
    static constexpr const char *headers[] = {"_adts", "_adif", "_raw"};
    const auto [rate, mode, header] = info.param;
    return std::to_string(rate) + modes[mode] + headers[header];
}

INSTANTIATE_TEST_SUITE_P(All, EndToEnd,
                         testing::Combine(testing::Values(48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000),
                                          testing::Values(0, 1, 2), testing::Values(0, 1, 2)),
                         name_of);

}  // namespace
