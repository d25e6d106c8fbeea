// Checks the bit rate before the library does, so that the error message can state the range.
#include "encoder_settings.h"

#include <algorithm>

#include "bit_rates.h"
#include "program_error.h"

namespace tavik {
namespace {

// Bit rate per channel from the bit rate of all channels, in bit/s. Throws ProgramError if it is not valid.
uint32_t divide_bit_rate(uint64_t bit_rate, uint32_t channels, uint32_t rate) {
    const std::string subject = "-b " + std::to_string(bit_rate);
    const BitRateRange valid = valid_bit_rates(channels, rate);
    if (bit_rate < valid.min && valid.contains(bit_rate * 1000)) {
        throw ProgramError(ExitCode::usage, subject, "is in bit/s; for kbit/s use " + std::to_string(bit_rate) + "k");
    }
    if (!valid.contains(bit_rate)) {
        throw ProgramError(ExitCode::usage, subject, bit_rate_rule(channels, rate));
    }
    if (bit_rate % channels != 0) {
        throw ProgramError(ExitCode::usage, subject,
                           "must divide evenly into " + std::to_string(channels) + " channels");
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

uint32_t choose_rate(uint32_t source_rate) {
    const auto *found = std::lower_bound(supported_rates.begin(), supported_rates.end(), source_rate);
    return found != supported_rates.end() ? *found : supported_rates.back();
}

EncoderConfig make_config(const Options &options, Format format, AudioFormat source) {
    EncoderConfig config{};
    config.channel_mode = static_cast<uint32_t>(options.mode.value_or(default_channel_mode(source.channels)));
    config.sample_rate = options.rate.value_or(choose_rate(source.rate));
    config.bit_rate = options.bit_rate ? divide_bit_rate(*options.bit_rate, channel_count(config), config.sample_rate)
                                       : default_bit_rate(config.sample_rate);
    config.header_type = header_type(format);
    config.constant_rate = options.constant_rate ? 1 : 0;
    // An MP4 file always has it: its edit list tells players to skip the priming samples.
    config.emit_priming_frame = options.priming || format == Format::m4a ? 1 : 0;
    config.tns_disable = options.no_tns ? 1 : 0;
    return config;
}

}  // namespace tavik
