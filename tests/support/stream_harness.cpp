#include "support/stream_harness.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace tavik_test {
namespace {

void require(bool condition, const std::string &message) {
    if (!condition) throw std::runtime_error(message);
}

// ---- Encoding ----

constexpr std::size_t guard_bytes = 256;
constexpr std::uint8_t guard_value = 0xc3;
constexpr std::uint8_t stale_value = 0xa5;  // fills memory that the library must not rely on
constexpr std::uint32_t most_flush_calls = 8;

using Guard = std::array<std::uint8_t, guard_bytes>;

Guard fresh_guard() {
    Guard guard;
    guard.fill(guard_value);
    return guard;
}

struct GuardedContext {
    Guard before = fresh_guard();
    EncoderContext context;
    Guard after = fresh_guard();

    GuardedContext() { std::memset(&context, stale_value, sizeof context); }
};

// An encoder between guards, with an output buffer that is followed by one.
class GuardedEncoder {
 public:
    explicit GuardedEncoder(const EncoderConfig &config)
        : memory_(std::make_unique<GuardedContext>()),
          channels_(channel_count(config)),
          capacity_(channels_ * std::size_t{TAVIK_MAX_FRAME_BYTES_PER_CHANNEL}),
          output_(capacity_ + guard_bytes, guard_value) {
        const auto passing_config = std::make_unique<EncoderConfig>(config);  // gone before the first frame
        const std::int32_t result = TAVIK_Init(&memory_->context, passing_config.get());
        check_guards();
        require(result == 0, "TAVIK_Init refuses the configuration: status " + std::to_string(status()));
    }

    // One call of TAVIK_Encode with all samples of `pcm`.
    void encode(std::span<const std::int16_t> pcm, EncodedStream &stream) {
        const auto offered = static_cast<std::uint32_t>(pcm.size() / channels_);
        const auto input = std::make_unique<std::int16_t[]>(pcm.size());
        std::copy(pcm.begin(), pcm.end(), input.get());
        std::fill_n(output_.begin(), capacity_, stale_value);

        std::uint32_t samples = offered;
        std::uint32_t bytes = 0xffffffff;
        const std::int32_t result = TAVIK_Encode(&memory_->context, input.get(), &samples, output_.data(), &bytes);

        check_guards();
        require(std::equal(pcm.begin(), pcm.end(), input.get()), "TAVIK_Encode changes its input");
        require(samples == offered, "TAVIK_Encode changes the sample count to " + std::to_string(samples));
        require(bytes <= capacity_, "TAVIK_Encode reports " + std::to_string(bytes) + " bytes");
        check_result(result, bytes, offered);
        record(result, bytes, stream);
    }

    std::int32_t status() const { return memory_->context.status; }

 private:
    static bool is_intact(std::span<const std::uint8_t> guard) {
        return std::all_of(guard.begin(), guard.end(), [](std::uint8_t byte) { return byte == guard_value; });
    }

    void check_guards() const {
        require(is_intact(memory_->before), "write before the context");
        require(is_intact(memory_->after), "write behind the context");
        require(is_intact(std::span(output_).subspan(capacity_)), "write behind the output buffer");
    }

    // What result, status and output say must fit together and to the samples offered.
    void check_result(std::int32_t result, std::uint32_t bytes, std::uint32_t offered) const {
        const std::string found = "result " + std::to_string(result) + ", status " + std::to_string(status()) +
                                  " and " + std::to_string(bytes) + " bytes for " + std::to_string(offered) +
                                  " samples";
        switch (status()) {
            case TAVIK_OK: return require(result == 0 && bytes > 0 && offered == TAVIK_FRAME_LENGTH, found);
            case TAVIK_STATUS_NO_OUTPUT: return require(result == 1 && bytes == 0 && offered > 0, found);
            case TAVIK_STATUS_PARTIAL_FRAME:
                return require(result == 1 && offered > 0 && offered < TAVIK_FRAME_LENGTH, found);
            case TAVIK_STATUS_FLUSHING:
            case TAVIK_STATUS_END_OF_STREAM: return require(result == 1 && offered == 0, found);
            default: require(false, found);
        }
    }

    void record(std::int32_t result, std::uint32_t bytes, EncodedStream &stream) const {
        stream.results.push_back(result);
        stream.statuses.push_back(status());
        stream.output_bytes.push_back(bytes);
        if (bytes > 0) stream.frames.emplace_back(output_.begin(), output_.begin() + bytes);
    }

    std::unique_ptr<GuardedContext> memory_;
    std::size_t channels_;
    std::size_t capacity_;  // bytes of output_ before its guard
    std::vector<std::uint8_t> output_;
};

// Frames of a stream: one for each input frame and the priming frame, but at least two of an input that is not empty.
std::size_t expected_frames(const EncoderConfig &config, std::size_t input_frames) {
    if (input_frames == 0) return 0;
    return std::max<std::size_t>(input_frames + config.emit_priming_frame, 2);
}

// ---- Checking ----

constexpr unsigned copyright_id_bits = 72;
constexpr unsigned variable_rate_fullness = 0x7ff;
constexpr unsigned input_buffer_bits = 6144;  // of a decoder, per channel
constexpr unsigned adts_fullness_unit_bits = 32;

unsigned sampling_frequency_index(unsigned sample_rate) {
    constexpr std::array<unsigned, 12> rates = {96000, 88200, 64000, 48000, 44100, 32000,
                                                24000, 22050, 16000, 12000, 11025, 8000};
    const auto found = std::find(rates.begin(), rates.end(), sample_rate);
    require(found != rates.end(), "no such sampling rate");
    return static_cast<unsigned>(found - rates.begin());
}

// The bit of the identifier that the ADTS header of a frame carries; 0 after the last and without an identifier.
unsigned copyright_bit(const EncoderConfig &config, std::size_t frame_number) {
    if (config.copyright_id_present == 0 || frame_number >= copyright_id_bits) return 0;
    return config.copyright_id[frame_number / 8] >> (7 - frame_number % 8) & 1u;
}

void check_adts(const EncoderConfig &config, const AdtsHeader &header, std::size_t frame_number) {
    const bool starts_id = config.copyright_id_present == 1 && frame_number == 0;
    require(header.id == 1, "ADTS: ID");
    require(header.original_copy == config.original_copy, "ADTS: original_copy");
    require(header.home == config.home, "ADTS: home");
    require(header.copyright_identification_bit == copyright_bit(config, frame_number), "ADTS: copyright bit");
    require(header.copyright_identification_start == (starts_id ? 1 : 0), "ADTS: copyright start");
    if (config.constant_rate == 1) {
        require(header.buffer_fullness <= input_buffer_bits / adts_fullness_unit_bits, "ADTS: buffer fullness");
    } else {
        require(header.buffer_fullness == variable_rate_fullness, "ADTS: buffer fullness");
    }
}

void check_adif(const EncoderConfig &config, const AdifHeader &header) {
    const unsigned mean_rate = config.bit_rate * channel_count(config);
    const bool is_constant = config.constant_rate == 1;
    require(header.copyright_id.has_value() == (config.copyright_id_present == 1), "ADIF: copyright_id_present");
    require(!header.copyright_id ||
                std::equal(header.copyright_id->begin(), header.copyright_id->end(), config.copyright_id),
            "ADIF: copyright_id");
    require(header.original_copy == config.original_copy, "ADIF: original_copy");
    require(header.home == config.home, "ADIF: home");
    require(header.bitstream_type == (is_constant ? 0 : 1), "ADIF: bitstream_type");
    require(is_constant ? header.bitrate == mean_rate : header.bitrate >= mean_rate, "ADIF: bitrate");
    require(!header.buffer_fullness || *header.buffer_fullness <= input_buffer_bits * channel_count(config),
            "ADIF: buffer fullness");
}

void check_constant_rate(const EncoderConfig &config, std::size_t frame_bytes) {
    const std::uint64_t mean_bytes = std::uint64_t{config.bit_rate} * TAVIK_FRAME_LENGTH / config.sample_rate / 8;
    require(frame_bytes >= mean_bytes * channel_count(config), "frame shorter than the constant rate asks for");
}

bool starts_short(const ChannelStream &stream) { return stream.ics.window_sequence >= eight_short_sequence; }

bool ends_short(const ChannelStream &stream) {
    return stream.ics.window_sequence == long_start_sequence || stream.ics.is_short();
}

// The second half of a window and the first half of the next must mirror each other.
void check_overlap(const Frame &previous, const Frame &current) {
    for (std::size_t i = 0; i < current.channels.size(); ++i) {
        require(ends_short(previous.channels[i]) == starts_short(current.channels[i]),
                "window sequence " + std::to_string(current.channels[i].ics.window_sequence) + " after " +
                    std::to_string(previous.channels[i].ics.window_sequence));
    }
}

void check_frame(const EncoderConfig &config, const Frame &frame, std::size_t frame_number, std::size_t frame_bytes) {
    if (frame.adts) check_adts(config, *frame.adts, frame_number);
    if (frame.adif) check_adif(config, *frame.adif);
    if (config.constant_rate == 1) check_constant_rate(config, frame_bytes);
}

}  // namespace

std::vector<std::uint8_t> EncodedStream::bytes() const {
    std::vector<std::uint8_t> all;
    for (const auto &frame : frames) all.insert(all.end(), frame.begin(), frame.end());
    return all;
}

unsigned channel_count(const EncoderConfig &config) { return config.channel_mode == TAVIK_MODE_MONO ? 1 : 2; }

EncodedStream encode_stream(const EncoderConfig &config, std::span<const std::int16_t> pcm) {
    const std::size_t frame_samples = std::size_t{TAVIK_FRAME_LENGTH} * channel_count(config);
    require(pcm.size() % channel_count(config) == 0, "samples of one channel missing");
    const std::size_t input_frames = (pcm.size() + frame_samples - 1) / frame_samples;

    EncodedStream stream;
    GuardedEncoder encoder(config);
    for (; !pcm.empty(); pcm = pcm.subspan(std::min(frame_samples, pcm.size()))) {
        encoder.encode(pcm.first(std::min(frame_samples, pcm.size())), stream);
    }
    std::uint32_t flush_calls = 0;
    do {
        require(++flush_calls <= most_flush_calls, "the stream does not end");
        encoder.encode({}, stream);
    } while (encoder.status() != TAVIK_STATUS_END_OF_STREAM || stream.output_bytes.back() > 0);

    require(stream.frames.size() == expected_frames(config, input_frames),
            std::to_string(stream.frames.size()) + " frames for an input of " + std::to_string(input_frames));
    return stream;
}

StreamFormat stream_format(const EncoderConfig &config) {
    constexpr std::array framings = {Framing::adts, Framing::adif, Framing::raw};
    constexpr std::array modes = {ChannelMode::mono, ChannelMode::stereo, ChannelMode::two_mono};
    return {framings.at(config.header_type), modes.at(config.channel_mode),
            sampling_frequency_index(config.sample_rate)};
}

std::vector<Frame> read_stream(const EncoderConfig &config, const EncodedStream &stream) {
    const StreamFormat format = stream_format(config);
    std::vector<Frame> frames;
    for (const auto &bytes : stream.frames) {
        const std::size_t number = frames.size();
        try {
            frames.push_back(read_frame(bytes, format, number == 0));
            check_frame(config, frames.back(), number, bytes.size());
            if (number > 0) check_overlap(frames[number - 1], frames[number]);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error("frame " + std::to_string(number) + ": " + error.what());
        }
    }
    return frames;
}

}  // namespace tavik_test
