// Encodes one file. Input, encoder and output work frame by frame: only the index of MP4 files takes memory that grows
// with the length.
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

// The result of encoding one input.
struct EncodedFile {
    Format format = Format::m4a;
    EncoderConfig config{};
    AudioFormat source{};
    uint64_t samples = 0;  // per channel, at the rate of the output
    uint64_t start = 0;    // samples by which an MP4 edit delays them
    uint64_t frames = 0;
    uint64_t frame_bytes = 0;  // of all frames
    uint64_t bytes = 0;        // of the file
    double elapsed = 0;        // seconds that encoding took
    bool verified = false;
    std::vector<std::string> warnings;  // what was lost or changed
    std::vector<std::string> not_kept;  // names of tags, pictures and chapters that the output cannot store
    Track track;
    std::vector<TimeError> time_errors;
    uint64_t clipped = 0;  // number of clipped samples
    double gain = 0;       // dB, applied to the samples
    Loudness replay_gain;  // of the output

    double duration() const { return static_cast<double>(samples) / config.sample_rate; }

    // Mean bit/s of all frames.
    double mean_bit_rate() const {
        const double coded_seconds = static_cast<double>(frames * TAVIK_FRAME_LENGTH) / config.sample_rate;
        return static_cast<double>(frame_bytes) * 8 / coded_seconds;
    }
};

// Progress of one file. A file whose loudness is measured first is read twice, and both passes count.
struct FileProgress {
    double seconds = 0;              // seconds of audio read so far
    std::optional<double> duration;  // seconds of audio to read, if known

    double fraction() const { return duration && *duration > 0 ? std::clamp(seconds / *duration, 0.0, 1.0) : 0; }
};
using ReportProgress = std::function<void(FileProgress)>;

// Measures one file before it is encoded. Throws ProgramError, also for an input that cannot be read twice.
LoudnessState measure_file(const Options &options, const Job &job, const ReportProgress &report);

// Encodes one file. `loudness` is the measured one, empty if it was not measured. `report` is called after each frame.
// Throws ProgramError; an existing file with the output's name is then unchanged.
EncodedFile encode_file(const Options &options, const Job &job, const Loudness &loudness, const ReportProgress &report);

}  // namespace tavik
