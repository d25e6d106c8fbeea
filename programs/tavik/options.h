// The command line, the first thing that a run looks at.
#pragma once

#include <taglib/mp4coverart.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "supported_formats.h"

namespace tavik {

// What the coded frames are written as.
enum class Format : uint32_t { m4a, adts, adif, raw_frames };

struct FormatNames {
    const char *option;  // without the hyphens
    const char *text;
    const char *extension;
};

constexpr FormatNames names_of(Format format) {
    switch (format) {
        case Format::adts: return {"adts", "ADTS", ".aac"};
        case Format::adif: return {"adif", "ADIF", ".adif"};
        case Format::raw_frames: return {"raw-frames", "raw frames", ".raw"};
        default: return {"m4a", "M4A", ".m4a"};
    }
}

// Samples without a header.
struct PcmFormat {
    std::string sample_format;  // name of FFmpeg's demuxer: s16le, u8, ...
    uint32_t rate = 44100;      // Hz
    uint32_t channels = 2;
};

// Within what is taken for such samples.
constexpr bool is_possible(uint32_t rate, uint32_t channels) {
    constexpr uint32_t highest_rate = 768000;
    constexpr uint32_t most_channels = 64;
    return rate > 0 && rate <= highest_rate && channels > 0 && channels <= most_channels;
}

// Whether the loudness that was measured is evened out, and whose: that of each file, or of all files of its directory.
enum class LoudnessGain : uint32_t { none, track, album };

// The command line, checked as far as that is possible without looking at the inputs.
struct Options {
    std::vector<std::string> inputs;  // standard_stream among them is standard input
    std::optional<std::string> output;
    bool replace = false;
    bool skip_existing = false;
    bool update = false;  // outputs older than their inputs are replaced, others left out
    bool strict = false;
    bool verify = false;
    bool live = false;  // the input is endless: an interruption ends it
    std::optional<Format> format;
    bool start_edit = false;  // MP4 files begin a late start with an edit, not with silence

    std::optional<uint64_t> bit_rate;  // bit/s of all channels together
    bool constant_rate = false;
    std::optional<uint32_t> rate;  // Hz, one of supported_rates
    std::optional<ChannelMode> mode;
    bool no_tns = false;
    bool priming = false;
    std::optional<PcmFormat> pcm;
    unsigned track = 0;    // audio stream of the input, from 1; 0: the best
    std::string language;  // that of the audio stream; empty: any

    double gain = 0;  // dB
    bool loudness = false;
    LoudnessGain loudness_gain = LoudnessGain::none;  // with `loudness` only

    std::vector<std::pair<std::string, std::string>> tags;  // names in capitals, values; an empty value: no such tag
    std::optional<TagLib::MP4::CoverArt> cover;
    bool no_tags = false;
    bool no_cover = false;

    bool quiet = false;
    bool verbose = false;
    bool no_progress = false;
    bool json = false;
    unsigned jobs = 0;  // 0: as many as there are cores
};

// Parses the command line. Returns nothing when it asked for the help or version text, which is then printed already.
// Throws ProgramError with ExitCode::usage when it makes no sense.
std::optional<Options> parse_options(int argc, const char *const *argv);

}  // namespace tavik
