// Options and arguments of the command line.
#pragma once

#include <taglib/mp4coverart.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "supported_formats.h"

namespace tavik {

// Formats of outputs.
enum class Format : uint32_t { m4a, adts, adif, raw_frames };

struct FormatNames {
    const char *option;     // without the hyphens
    const char *text;       // in reports
    const char *extension;  // default extension of outputs
};

constexpr FormatNames names_of(Format format) {
    switch (format) {
        case Format::adts: return {"adts", "ADTS", ".aac"};
        case Format::adif: return {"adif", "ADIF", ".adif"};
        case Format::raw_frames: return {"raw-frames", "raw frames", ".raw"};
        default: return {"m4a", "M4A", ".m4a"};
    }
}

// Format of samples without a header.
struct PcmFormat {
    std::string sample_format;  // name of FFmpeg's demuxer: s16le, u8, ...
    uint32_t rate = 44100;      // Hz
    uint32_t channels = 2;
};

constexpr bool is_valid_pcm(uint32_t rate, uint32_t channels) {
    constexpr uint32_t max_rate = 768000;  // Hz
    constexpr uint32_t max_channels = 64;
    return rate > 0 && rate <= max_rate && channels > 0 && channels <= max_channels;
}

// The loudness that determines the applied gain: none, that of the file, or that of all files of its directory.
enum class LoudnessGain : uint32_t { none, track, album };

// The parsed command line. What does not depend on the inputs has been checked.
struct Options {
    std::vector<std::string> inputs;  // may contain standard_stream
    std::optional<std::string> output;
    bool replace = false;
    bool skip_existing = false;
    bool update = false;  // replace outputs older than their inputs, skip the others
    bool strict = false;
    bool verify = false;
    bool live = false;  // the input is endless; a signal ends it
    std::optional<Format> format;
    bool start_edit = false;  // in MP4 files, a late start is an edit instead of silence

    std::optional<uint64_t> bit_rate;  // bit/s of all channels together
    bool constant_rate = false;
    std::optional<uint32_t> rate;  // Hz, one of supported_rates
    std::optional<ChannelMode> mode;
    bool no_tns = false;
    bool priming = false;
    std::optional<PcmFormat> pcm;
    unsigned track = 0;    // number of the audio stream of the input, from 1; 0: the best one
    std::string language;  // required language of the audio stream; empty: any

    double gain = 0;  // dB
    bool loudness = false;
    LoudnessGain loudness_gain = LoudnessGain::none;  // with `loudness` only

    std::vector<std::pair<std::string, std::string>> tags;  // names in capitals, values; an empty value removes the tag
    std::optional<TagLib::MP4::CoverArt> cover;
    bool no_tags = false;
    bool no_cover = false;

    bool quiet = false;
    bool verbose = false;
    bool no_progress = false;
    bool json = false;
    unsigned jobs = 0;  // files to encode at a time; 0: the number of cores
};

// Parses the command line. Returns nothing if it requests the help or version text, which has then been printed. Throws
// ProgramError with ExitCode::usage for wrong usage.
std::optional<Options> parse_options(int argc, const char *const *argv);

}  // namespace tavik
