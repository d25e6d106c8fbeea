// Checks the bit rate by itself, before the library does, so that the message can name the range.
#include "encoder_settings.h"

#include <algorithm>
#include <cmath>

#include "program_error.h"

namespace tavik {
namespace {

constexpr uint32_t full_bit_rate = 64000;  // bit/s per channel
constexpr uint32_t full_rate = 44100;      // Hz, the lowest that gets full_bit_rate by default

std::string range_text(uint64_t lowest, uint64_t highest) {
    return std::to_string(lowest) + " to " + std::to_string(highest);
}

// Bit/s per channel from the bit/s of all channels.
uint32_t divide_bit_rate(uint64_t bit_rate, uint32_t channels, uint32_t rate) {
    const std::string subject = "--bitrate " + std::to_string(bit_rate);
    const std::string channels_text = channels == 1 ? "1 channel" : std::to_string(channels) + " channels";
    const uint64_t lowest = TAVIK_MIN_BIT_RATE;
    const uint64_t highest = uint64_t{TAVIK_MAX_BIT_RATE_FACTOR} * rate;
    if (bit_rate < lowest * channels || bit_rate > highest * channels) {
        throw ProgramError(ExitCode::usage, subject,
                           "must be " + range_text(lowest * channels, highest * channels) + " bit/s for " +
                               channels_text + " at " + std::to_string(rate) + " Hz (" + range_text(lowest, highest) +
                               " per channel)");
    }
    if (bit_rate % channels != 0) {
        throw ProgramError(ExitCode::usage, subject, "must divide evenly into " + channels_text);
    }
    return static_cast<uint32_t>(bit_rate / channels);
}

uint32_t header_type(Format format) {
    switch (format) {
        case Format::adts: return TAVIK_HEADER_ADTS;
        case Format::adif: return TAVIK_HEADER_ADIF;
        default: return TAVIK_HEADER_NONE;
    }
}

}  // namespace

uint32_t channel_count(const EncoderConfig &config) { return config.channel_mode == TAVIK_MODE_MONO ? 1 : 2; }

uint32_t choose_rate(uint32_t source_rate) {
    const auto *found = std::lower_bound(supported_rates.begin(), supported_rates.end(), source_rate);
    return found != supported_rates.end() ? *found : supported_rates.back();
}

uint32_t default_bit_rate(uint32_t rate) {
    const uint32_t thousands = (rate * (full_bit_rate / 1000) + full_rate / 2) / full_rate;
    return std::min(thousands * 1000, full_bit_rate);
}

EncoderConfig make_config(const Options &options, Format format, AudioFormat source) {
    const ChannelMode mode = options.mode.value_or(source.channels == 1 ? ChannelMode::mono : ChannelMode::stereo);
    EncoderConfig config{};
    config.channel_mode = static_cast<uint32_t>(mode);
    config.sample_rate = options.rate.value_or(choose_rate(source.rate));
    config.bit_rate = options.bit_rate ? divide_bit_rate(*options.bit_rate, channel_count(config), config.sample_rate)
                                       : default_bit_rate(config.sample_rate);
    config.header_type = header_type(format);
    config.constant_rate = options.constant_rate ? 1 : 0;
    // An MP4 file tells players how much to leave out, so that all samples can be exact.
    config.emit_priming_frame = options.priming || format == Format::m4a ? 1 : 0;
    config.tns_disable = options.no_tns ? 1 : 0;
    config.home = options.home ? 1 : 0;
    config.original_copy = options.original ? 1 : 0;
    config.copyright_id_present = options.copyright_id.has_value() ? 1 : 0;
    if (options.copyright_id)
        std::copy(options.copyright_id->begin(), options.copyright_id->end(), config.copyright_id);
    return config;
}

}  // namespace tavik
