#include "support/stream_harness.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/require.h"

namespace tavik_test {
namespace {

std::size_t mean_frame_bytes(const EncoderConfig &config) {
    return std::uint64_t{config.bit_rate} * TAVIK_FRAME_LENGTH / config.sample_rate / 8 * channel_count(config);
}

std::size_t buffer_bytes(const EncoderConfig &config) {
    return std::size_t{TAVIK_MAX_FRAME_BYTES_PER_CHANNEL} * channel_count(config);
}

// The copyright identifier goes out bit by bit, one for each frame from the first.
void check_copyright(const EncoderConfig &config, const AdtsHeader &header, std::size_t number) {
    const bool carries_bit = config.copyright_id_present == 1 && number < 72;
    const unsigned bit = carries_bit ? config.copyright_id[number / 8] >> (7 - number % 8) & 1u : 0;
    require(header.copyright_identification_bit == bit, "copyright_identification_bit");
    require(header.copyright_identification_start == (carries_bit && number == 0), "copyright_identification_start");
}

// The second half of a window and the first half of the next must mirror each other.
void check_overlap(const Frame &previous, const Frame &current) {
    for (std::size_t i = 0; i < current.channels.size(); ++i) {
        const IcsInfo &before = previous.channels[i].ics, &now = current.channels[i].ics;
        const bool ends_short = before.window_sequence == long_start_sequence || before.is_short();
        const bool starts_short = now.window_sequence == long_stop_sequence || now.is_short();
        require(ends_short == starts_short, "window sequences that do not overlap");
    }
}

// What the rate loop leaves where a target is out of reach.
bool is_silent(const ChannelStream &channel) {
    return std::all_of(channel.quantized.begin(), channel.quantized.end(), [](int value) { return value == 0; });
}

}  // namespace

std::vector<std::uint8_t> EncodedStream::bytes() const {
    std::vector<std::uint8_t> all;
    for (const auto &frame : frames) all.insert(all.end(), frame.begin(), frame.end());
    return all;
}

EncodedStream encode_stream(const EncoderConfig &config, std::span<const std::int16_t> pcm) {
    const std::size_t channels = channel_count(config);
    const std::size_t input_frames = (pcm.size() / channels + TAVIK_FRAME_LENGTH - 1) / TAVIK_FRAME_LENGTH;
    // One frame for each input frame and the priming frame, but at least two of an input that is not empty.
    const std::size_t expected = pcm.empty() ? 0 : std::max<std::size_t>(input_frames + config.emit_priming_frame, 2);
    EncodedStream stream;
    CheckedEncoder encoder;
    const std::int32_t status = encoder.init(config);
    require(status == TAVIK_OK, "TAVIK_Init refuses the configuration: status ", status);
    bool is_complete = false;
    while (!is_complete) {
        const auto input = pcm.first(std::min(pcm.size(), TAVIK_FRAME_LENGTH * channels));
        pcm = pcm.subspan(input.size());
        const auto frame = encoder.encode(input, static_cast<std::uint32_t>(input.size() / channels));
        if (!frame.empty()) stream.frames.emplace_back(frame.begin(), frame.end());
        require(stream.frames.size() <= expected, "the stream does not end");
        is_complete = frame.empty() && encoder.status() == TAVIK_STATUS_END_OF_STREAM;
    }
    require(stream.frames.size() == expected, stream.frames.size(), " frames");
    return stream;
}

StreamFormat stream_format(const EncoderConfig &config) {
    constexpr std::array<unsigned, 12> rates = {96000, 88200, 64000, 48000, 44100, 32000,
                                                24000, 22050, 16000, 12000, 11025, 8000};
    const auto rate = std::find(rates.begin(), rates.end(), config.sample_rate);
    return {config, static_cast<unsigned>(rate - rates.begin())};
}

std::size_t largest_frame(const EncoderConfig &config) {
    const std::size_t mean = mean_frame_bytes(config);
    const std::size_t with_loans = std::min((144 * mean + 99) / 100, buffer_bytes(config));
    return std::max<std::size_t>(config.constant_rate == 1 ? mean : with_loans, TAVIK_MAX_BYTES_OUT_OF_REACH);
}

StreamReader::StreamReader(const EncoderConfig &config)
    : format_(stream_format(config)), mean_bytes_(mean_frame_bytes(config)), largest_bytes_(largest_frame(config)) {}

const Frame &StreamReader::read(std::span<const std::uint8_t> bytes) {
    try {
        Frame frame = read_frame(bytes, format_, number_ == 0);
        check(frame, bytes.size());
        previous_ = std::move(frame);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error("frame " + std::to_string(number_) + ": " + error.what());
    }
    constexpr std::size_t largest_reservoir = (1 << 20) - 1;
    const std::size_t saved = reservoir_bytes_ + mean_bytes_;
    reservoir_bytes_ = std::min(saved - std::min(saved, bytes.size()), largest_reservoir);
    ++number_;
    return *previous_;
}

void StreamReader::check(const Frame &frame, std::size_t bytes) const {
    if (frame.adts) check_copyright(format_.config, *frame.adts, number_);
    if (previous_) check_overlap(*previous_, frame);
    for (const auto &channel : frame.channels) {
        require(format_.config.tns_disable == 0 || !channel.has_tns, "TNS is disabled");
    }
    check_size(frame, bytes);
}

void StreamReader::check_size(const Frame &frame, std::size_t bytes) const {
    const EncoderConfig &config = format_.config;
    const bool is_constant = config.constant_rate == 1;
    const std::size_t budget =
        is_constant ? mean_bytes_ : std::min(mean_bytes_ + reservoir_bytes_, buffer_bytes(config));
    const bool out_of_reach = std::any_of(frame.channels.begin(), frame.channels.end(), is_silent);
    const std::size_t limit = out_of_reach ? std::max<std::size_t>(budget, TAVIK_MAX_BYTES_OUT_OF_REACH) : budget;
    require(bytes <= limit, bytes, " bytes for a budget of ", budget);
    require(bytes <= budget || frame.fill_bits == 0, "fill in a frame that is too large");
    require(bytes <= largest_bytes_, bytes, " bytes, more than the largest frame of ", largest_bytes_);
    require(!is_constant || bytes >= mean_bytes_, bytes, " bytes for a constant rate of ", mean_bytes_);
    for (const auto &channel : frame.channels) {  // a pair shares its buffer
        const std::size_t bits = channel.section_bits + channel.scale_factor_bits + channel.spectral_bits;
        require(config.channel_mode == TAVIK_MODE_STEREO || bits <= 8 * TAVIK_MAX_FRAME_BYTES_PER_CHANNEL, bits,
                " bits of one channel");
    }
}

std::vector<Frame> read_stream(const EncoderConfig &config, const EncodedStream &stream) {
    StreamReader reader(config);
    std::vector<Frame> frames;
    for (const auto &bytes : stream.frames) frames.push_back(reader.read(bytes));
    return frames;
}

}  // namespace tavik_test
