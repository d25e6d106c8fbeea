// The command line, the first thing that a run looks at.
#pragma once

#include <tavik.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace tavik {

// How the channels of the output are coded; the values are those of EncoderConfig.channel_mode.
enum class ChannelMode : uint32_t {
    mono = TAVIK_MODE_MONO,
    stereo = TAVIK_MODE_STEREO,
    two_mono = TAVIK_MODE_TWO_MONO
};

// What surrounds the coded frames; the values are those of EncoderConfig.header_type.
enum class Framing : uint32_t { adts = TAVIK_HEADER_ADTS, adif = TAVIK_HEADER_ADIF, raw_frames = TAVIK_HEADER_NONE };

// The sampling rates that can be encoded, in Hz, ascending.
inline constexpr std::array<uint32_t, 9> supported_rates{8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};

// The command line, checked as far as that is possible without looking at the input.
struct Options {
    std::string input;
    std::string output;
    std::optional<uint64_t> bit_rate;  // bit/s of all channels together
    std::optional<uint32_t> rate;      // Hz, one of supported_rates
    std::optional<ChannelMode> mode;
    Framing framing = Framing::adts;
    bool constant_rate = false;
    bool priming = false;
    bool no_tns = false;
    bool home = false;
    bool original = false;
    bool quiet = false;
    std::optional<std::array<uint8_t, 9>> copyright_id;  // most significant byte first
};

// Parses the command line. Returns nothing when it asked for the help or version text, which is then printed already.
// Throws ProgramError with ExitCode::usage when it makes no sense.
std::optional<Options> parse_options(int argc, const char *const *argv);

}  // namespace tavik
