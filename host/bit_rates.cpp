// The formulas are those in the comments of tavik.h, here for all channels together and for whole frames.
#include "bit_rates.h"

#include <algorithm>

namespace tavik {
namespace {

constexpr uint32_t max_default_bit_rate = 64000;  // bit/s per channel, from full_sample_rate on
constexpr uint32_t full_sample_rate = 44100;      // Hz

std::string text(BitRateRange range) { return std::to_string(range.min) + " to " + std::to_string(range.max); }

}  // namespace

uint32_t default_bit_rate(uint32_t sample_rate) {
    const uint32_t thousands = (sample_rate * (max_default_bit_rate / 1000) + full_sample_rate / 2) / full_sample_rate;
    return std::min(thousands * 1000, max_default_bit_rate);
}

BitRateRange valid_bit_rates(uint32_t channels, uint32_t sample_rate) {
    return {TAVIK_MIN_BIT_RATE * channels, TAVIK_MAX_BIT_RATE_FACTOR * sample_rate * channels};
}

std::string bit_rate_rule(uint32_t channels, uint32_t sample_rate) {
    return "must be " + text(valid_bit_rates(channels, sample_rate)) + " for " + std::to_string(channels) +
           (channels == 1 ? " channel at " : " channels at ") + std::to_string(sample_rate) + " Hz";
}

uint32_t mean_frame_bytes(const EncoderConfig &config) {
    const uint64_t channel_bits = uint64_t{config.bit_rate} * TAVIK_FRAME_LENGTH / config.sample_rate;
    return static_cast<uint32_t>(channel_bits / 8) * channel_count(config);
}

uint32_t max_frame_bytes(const EncoderConfig &config) {
    const uint32_t mean = mean_frame_bytes(config);
    const uint32_t largest = config.constant_rate == 1 ? mean : (144 * mean + 99) / 100;
    return std::clamp<uint32_t>(largest, TAVIK_MAX_BYTES_OUT_OF_REACH,
                                TAVIK_MAX_FRAME_BYTES_PER_CHANNEL * channel_count(config));
}

}  // namespace tavik
