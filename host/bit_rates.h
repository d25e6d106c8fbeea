// Bit rates and frame sizes of a configuration.
#pragma once

#include <tavik.h>

#include <cstdint>
#include <string>

#include "supported_formats.h"

namespace tavik {

// Number of channels of a stream with this configuration.
constexpr uint32_t channel_count(const EncoderConfig &config) {
    return channel_count(static_cast<ChannelMode>(config.channel_mode));
}

// Default bit rate in bit/s per channel: 64000; below 44100 Hz less, in proportion to the sampling rate.
uint32_t default_bit_rate(uint32_t sample_rate);

// In bit/s; both ends are included.
struct BitRateRange {
    uint32_t min;
    uint32_t max;

    bool contains(uint64_t bit_rate) const { return min <= bit_rate && bit_rate <= max; }
};

// Bit rates that the library accepts, for all channels together.
BitRateRange valid_bit_rates(uint32_t channels, uint32_t sample_rate);

// The end of an error message: "must be ... to ... for 2 channels at 44100 Hz".
std::string bit_rate_rule(uint32_t channels, uint32_t sample_rate);

// Mean size of a frame in bytes. At constant rate every frame has this size; at variable rate it is the target.
uint32_t mean_frame_bytes(const EncoderConfig &config);

// Upper bound of the size of a frame in bytes. tavik.h derives it.
uint32_t max_frame_bytes(const EncoderConfig &config);

}  // namespace tavik
