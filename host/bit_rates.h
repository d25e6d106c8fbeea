// Bit rates and frame sizes of a configuration, as hosts choose and show them.
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

// Bit/s per channel that are used when none are asked for: 64000, in proportion less below 44100 Hz.
uint32_t default_bit_rate(uint32_t sample_rate);

// Lowest and highest bit/s.
struct BitRateRange {
    uint32_t lowest;
    uint32_t highest;

    bool contains(uint64_t bit_rate) const { return lowest <= bit_rate && bit_rate <= highest; }
};

// What the library takes, for all channels together.
BitRateRange legal_bit_rates(uint32_t channels, uint32_t sample_rate);

// "must be ... to ... for 2 channels at 44100 Hz"
std::string bit_rate_rule(uint32_t channels, uint32_t sample_rate);

// Bytes that a frame has on average: at constant rate every frame, at variable rate what the rate is steered to.
uint32_t mean_frame_bytes(const EncoderConfig &config);

// No frame of such a stream has more bytes; tavik.h has the derivation.
uint32_t largest_frame_bytes(const EncoderConfig &config);

}  // namespace tavik
