#include "support/stream_harness.h"

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string>

namespace tavik_test {
namespace {

void require(bool condition, const std::string &message) {
    if (!condition) throw std::runtime_error(message);
}

// ---- Encoding ----

// Memory for the library between two guards, filled with stale bytes that the library must not rely on.
class GuardedMemory {
 public:
    explicit GuardedMemory(std::size_t size) : bytes_(size + 2 * guard_bytes, guard_value) { make_stale(); }

    std::uint8_t *data() { return bytes_.data() + guard_bytes; }

    void make_stale() { std::fill(bytes_.begin() + guard_bytes, bytes_.end() - guard_bytes, stale_value); }

    bool is_stale_from(std::ptrdiff_t offset) const {
        return std::all_of(bytes_.begin() + guard_bytes + offset, bytes_.end() - guard_bytes,
                           [](std::uint8_t byte) { return byte == stale_value; });
    }

    void check_guards() const {
        const auto is_intact = [](std::uint8_t byte) { return byte == guard_value; };
        require(std::all_of(bytes_.begin(), bytes_.begin() + guard_bytes, is_intact), "write before the memory");
        require(std::all_of(bytes_.end() - guard_bytes, bytes_.end(), is_intact), "write behind the memory");
    }

 private:
    static constexpr std::ptrdiff_t guard_bytes = 256;
    static constexpr std::uint8_t guard_value = 0xc3;
    static constexpr std::uint8_t stale_value = 0xa5;
    std::vector<std::uint8_t> bytes_;
};

class GuardedEncoder {
 public:
    explicit GuardedEncoder(const EncoderConfig &config)
        : channels_(channel_count(config)), output_(channels_ * TAVIK_MAX_FRAME_BYTES_PER_CHANNEL) {
        const auto passing_config = std::make_unique<EncoderConfig>(config);  // gone before the first frame
        const std::int32_t result = TAVIK_Init(context_, passing_config.get());
        memory_.check_guards();
        require(result == 0, "TAVIK_Init refuses the configuration: status " + std::to_string(status()));
    }

    // One call of TAVIK_Encode with all samples of `pcm`: adds its output, if any, to the frames. Returns its size.
    std::size_t encode(std::span<const std::int16_t> pcm, EncodedStream &stream) {
        const auto offered = static_cast<std::uint32_t>(pcm.size() / channels_);
        const auto input = std::make_unique<std::int16_t[]>(pcm.size());
        std::copy(pcm.begin(), pcm.end(), input.get());
        output_.make_stale();
        std::uint32_t samples = offered, bytes = 0xffffffff;
        const std::int32_t result = TAVIK_Encode(context_, input.get(), &samples, output_.data(), &bytes);

        memory_.check_guards();
        output_.check_guards();
        require(std::equal(pcm.begin(), pcm.end(), input.get()), "TAVIK_Encode changes its input");
        require(samples == offered, "TAVIK_Encode changes the sample count");
        require(bytes <= channels_ * TAVIK_MAX_FRAME_BYTES_PER_CHANNEL, "TAVIK_Encode reports too many bytes");
        require(output_.is_stale_from(bytes), "TAVIK_Encode writes behind the frame");
        require(fits_together(result, bytes, offered), "TAVIK_Encode gives status " + std::to_string(status()));
        if (bytes > 0) stream.frames.emplace_back(output_.data(), output_.data() + bytes);
        return bytes;
    }

    std::int32_t status() const { return context_->status; }

 private:
    bool fits_together(std::int32_t result, std::uint32_t bytes, std::uint32_t offered) const {
        switch (status()) {
            case TAVIK_OK: return result == 0 && bytes > 0 && offered == TAVIK_FRAME_LENGTH;
            case TAVIK_STATUS_NO_OUTPUT: return result == 1 && bytes == 0 && offered > 0;
            case TAVIK_STATUS_PARTIAL_FRAME: return result == 1 && offered > 0 && offered < TAVIK_FRAME_LENGTH;
            case TAVIK_STATUS_FLUSHING:
            case TAVIK_STATUS_END_OF_STREAM: return result == 1 && offered == 0;
            default: return false;
        }
    }

    std::size_t channels_;
    GuardedMemory memory_{sizeof(EncoderContext)};
    GuardedMemory output_;
    EncoderContext *context_ = reinterpret_cast<EncoderContext *>(memory_.data());
};

// ---- Checking ----

// The copyright identifier goes out bit by bit, one for each frame from the first.
void check_copyright(const EncoderConfig &config, const AdtsHeader &header, std::size_t number) {
    const bool carries_bit = config.copyright_id_present == 1 && number < 72;
    const unsigned bit = carries_bit ? config.copyright_id[number / 8] >> (7 - number % 8) & 1u : 0;
    require(header.copyright_identification_bit == bit, "copyright_identification_bit");
    require(header.copyright_identification_start == (carries_bit && number == 0), "copyright_identification_start");
}

void check_frame(const EncoderConfig &config, const Frame &frame, std::size_t number, std::size_t bytes) {
    if (frame.adts) check_copyright(config, *frame.adts, number);
    const std::uint64_t mean_bytes = std::uint64_t{config.bit_rate} * TAVIK_FRAME_LENGTH / config.sample_rate / 8;
    require(config.constant_rate == 0 || bytes >= mean_bytes * frame.channels.size(), "too short for a constant rate");
    for (const auto &channel : frame.channels) require(config.tns_disable == 0 || !channel.has_tns, "TNS is disabled");
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

}  // namespace

std::vector<std::uint8_t> EncodedStream::bytes() const {
    std::vector<std::uint8_t> all;
    for (const auto &frame : frames) all.insert(all.end(), frame.begin(), frame.end());
    return all;
}

unsigned channel_count(const EncoderConfig &config) { return config.channel_mode == TAVIK_MODE_MONO ? 1 : 2; }

EncodedStream encode_stream(const EncoderConfig &config, std::span<const std::int16_t> pcm) {
    const std::size_t frame_samples = std::size_t{TAVIK_FRAME_LENGTH} * channel_count(config);
    const std::size_t input_frames = (pcm.size() + frame_samples - 1) / frame_samples;
    // One frame for each input frame and the priming frame, but at least two of an input that is not empty.
    const std::size_t expected = pcm.empty() ? 0 : std::max<std::size_t>(input_frames + config.emit_priming_frame, 2);
    EncodedStream stream;
    GuardedEncoder encoder(config);
    for (; !pcm.empty(); pcm = pcm.subspan(std::min(frame_samples, pcm.size()))) {
        encoder.encode(pcm.first(std::min(frame_samples, pcm.size())), stream);
    }
    int flush_calls = 0;
    while (encoder.encode({}, stream) > 0 || encoder.status() != TAVIK_STATUS_END_OF_STREAM) {
        require(++flush_calls < 8, "the stream does not end");
    }
    require(stream.frames.size() == expected, std::to_string(stream.frames.size()) + " frames");
    return stream;
}

StreamFormat stream_format(const EncoderConfig &config) {
    constexpr std::array<unsigned, 12> rates = {96000, 88200, 64000, 48000, 44100, 32000,
                                                24000, 22050, 16000, 12000, 11025, 8000};
    const auto rate = std::find(rates.begin(), rates.end(), config.sample_rate);
    return {config, static_cast<unsigned>(rate - rates.begin())};
}

std::vector<Frame> read_stream(const EncoderConfig &config, const EncodedStream &stream) {
    std::vector<Frame> frames;
    for (const auto &bytes : stream.frames) {
        const std::size_t number = frames.size();
        try {
            frames.push_back(read_frame(bytes, stream_format(config), number == 0));
            check_frame(config, frames.back(), number, bytes.size());
            if (number > 0) check_overlap(frames[number - 1], frames[number]);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error("frame " + std::to_string(number) + ": " + error.what());
        }
    }
    return frames;
}

}  // namespace tavik_test
