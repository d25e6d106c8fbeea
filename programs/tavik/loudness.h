// Loudness measurement by EBU R128 / ITU-R BS.1770, as ReplayGain 2 uses it.
#pragma once

#include <ebur128.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "audio_reader.h"

namespace tavik {

// Values with which players equalise loudness.
struct ReplayGain {
    double gain;  // dB, to reach -18 LUFS
    double peak;  // largest sample, full scale 1

    // The values after a gain has been applied to the audio.
    ReplayGain after(double gain_db) const { return {gain - gain_db, peak * to_factor(gain_db)}; }
};

// Measured values of one file, and of all files of its directory together. Absent for silence.
struct Loudness {
    std::optional<ReplayGain> track;
    std::optional<ReplayGain> album;
};

struct LoudnessDeleter {
    void operator()(ebur128_state *state) const { ebur128_destroy(&state); }
};
using LoudnessState = std::unique_ptr<ebur128_state, LoudnessDeleter>;

// Returns the output format for the format of a source.
using ChooseFormat = std::function<AudioFormat(AudioFormat)>;

// Measures a whole file in the format in which it will be encoded, but without clipping. `report` is called regularly.
// Throws as AudioReader.
LoudnessState measure_loudness(const Source &source, const ChooseFormat &choose_format,
                               const std::function<void(const AudioDecoder &)> &report);

// The values of one file, or of several together.
std::optional<ReplayGain> replay_gain(std::span<ebur128_state *const> states);

}  // namespace tavik
