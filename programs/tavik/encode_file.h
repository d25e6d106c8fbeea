// The work on one file: input, encoder and output joined, one frame at a time, so that memory does not grow, but for
// the index of MP4 files.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "encoder_settings.h"
#include "jobs.h"
#include "loudness.h"

namespace tavik {

// What was made of one input.
struct EncodedFile {
    Format format = Format::m4a;
    EncoderConfig config{};
    AudioFormat source{};
    uint64_t samples = 0;  // per channel, at the rate of the output
    uint64_t start = 0;    // samples that an edit puts before them
    uint64_t frames = 0;
    uint64_t frame_bytes = 0;  // of all frames
    uint64_t bytes = 0;        // of the file
    double elapsed = 0;        // seconds that the work took
    bool verified = false;
    std::vector<std::string> warnings;  // what was lost or changed on the way
    std::vector<std::string> not_kept;  // names of tags and the like that the output has no place for
    Track track;
    std::vector<TimeError> time_errors;
    uint64_t clipped = 0;  // samples
    double gain = 0;       // dB, that was applied
    Loudness replay_gain;  // of the output

    double duration() const { return static_cast<double>(samples) / config.sample_rate; }

    // Mean bit/s of all frames.
    double mean_bit_rate() const {
        const double coded_seconds = static_cast<double>(frames * TAVIK_FRAME_LENGTH) / config.sample_rate;
        return static_cast<double>(frame_bytes) * 8 / coded_seconds;
    }
};

// How far the work on a file is.
struct FileProgress {
    double seconds = 0;              // of audio read, twice for what is measured before
    std::optional<double> duration;  // of all that, where it is known

    double fraction() const { return duration && *duration > 0 ? std::clamp(seconds / *duration, 0.0, 1.0) : 0; }
};
using ReportProgress = std::function<void(FileProgress)>;

// Measures one file before it is encoded. Throws ProgramError, also for an input that cannot be read twice.
LoudnessState measure_file(const Options &options, const Job &job, const ReportProgress &report);

// Encodes one file; `loudness` is what was measured, if it was. `report` is called after each frame. Throws
// ProgramError; what stood under the output's name is then as it was before.
EncodedFile encode_file(const Options &options, const Job &job, const Loudness &loudness, const ReportProgress &report);

}  // namespace tavik
