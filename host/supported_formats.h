// Sampling rates and channel modes that the encoder supports, and the names of the modes.
#pragma once

#include <tavik.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavik {

// Sampling rates in Hz, ascending.
inline constexpr std::array<uint32_t, 9> supported_rates{8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};

// How the channels are coded; the values are those of EncoderConfig.channel_mode.
enum class ChannelMode : uint32_t {
    mono = TAVIK_MODE_MONO,
    stereo = TAVIK_MODE_STEREO,
    two_mono = TAVIK_MODE_TWO_MONO
};

// Names of the modes in options, reports and element properties, indexed by the mode's value.
inline constexpr std::array<const char *, 3> channel_mode_names{"mono", "stereo", "two-mono"};

constexpr const char *channel_mode_name(ChannelMode mode) { return channel_mode_names.at(static_cast<uint32_t>(mode)); }

// The mode with this name, if there is one.
constexpr std::optional<ChannelMode> find_channel_mode(std::string_view name) {
    for (uint32_t value = 0; value < channel_mode_names.size(); ++value) {
        if (channel_mode_names.at(value) == name) return static_cast<ChannelMode>(value);
    }
    return std::nullopt;
}

// Number of channels that a mode codes, and the mode that is used for an input if none is chosen.
constexpr uint32_t channel_count(ChannelMode mode) { return mode == ChannelMode::mono ? 1 : 2; }
constexpr ChannelMode default_channel_mode(uint32_t channels) {
    return channels == 1 ? ChannelMode::mono : ChannelMode::stereo;
}

}  // namespace tavik
