// Loudness by EBU R128 / ITU-R BS.1770, as ReplayGain 2 takes it.
#pragma once

#include <ebur128.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "audio_reader.h"

namespace tavik {

// What players need to make everything as loud.
struct ReplayGain {
    double gain;  // dB that bring it to -18 LUFS
    double peak;  // the highest sample, full scale 1

    // The same of what has been made louder by so many decibels.
    ReplayGain after(double gain_db) const { return {gain - gain_db, peak * to_factor(gain_db)}; }
};

// What was measured of one file, and of all files of its directory. Silence has no loudness.
struct Loudness {
    std::optional<ReplayGain> track;
    std::optional<ReplayGain> album;
};

struct LoudnessDeleter {
    void operator()(ebur128_state *state) const { ebur128_destroy(&state); }
};
using LoudnessState = std::unique_ptr<ebur128_state, LoudnessDeleter>;

// Chooses the format of the output for that of a source.
using ChooseFormat = std::function<AudioFormat(AudioFormat)>;

// Reads a whole file as it would be encoded, but for what clipping would take. `report` is called now and then. Throws
// as AudioReader.
LoudnessState measure_loudness(const Source &source, const ChooseFormat &choose_format,
                               const std::function<void(const AudioDecoder &)> &report);

// Of some files together, or of one.
std::optional<ReplayGain> replay_gain(std::span<ebur128_state *const> states);

}  // namespace tavik
