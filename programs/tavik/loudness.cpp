#include "loudness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace tavik {
namespace {

constexpr double reference_loudness = -18;  // LUFS, the target of ReplayGain 2
constexpr size_t block_samples = 4096;      // per channel

void check(int result) {
    if (result != EBUR128_SUCCESS) throw std::bad_alloc();
}

// Measures everything that a reader delivers. The gain that the reader applies is removed again.
void add_all(ebur128_state *state, AudioReader &reader, double gain_db,
             const std::function<void(const AudioDecoder &)> &report) {
    std::vector<int16_t> samples(block_samples * state->channels);
    std::vector<float> scaled(samples.size());
    const auto factor = static_cast<float>(1 / to_factor(gain_db) / 32768);
    while (const size_t count = reader.read(samples)) {
        std::ranges::transform(samples, scaled.begin(),
                               [factor](int16_t sample) { return static_cast<float>(sample) * factor; });
        check(ebur128_add_frames_float(state, scaled.data(), count));
        report(reader.decoder());
    }
}

// Sets `peak_dbfs` to the peak if samples were clipped, otherwise to 0.
LoudnessState measure(const Source &source, const ChooseFormat &choose_format, double gain_db, double &peak_dbfs,
                      const std::function<void(const AudioDecoder &)> &report) {
    AudioReader reader(source);
    const AudioFormat format = choose_format(reader.source());
    reader.set_output(format, gain_db);
    // The histogram mode keeps memory constant.
    LoudnessState state(
        ebur128_init(format.channels, format.rate, EBUR128_MODE_I | EBUR128_MODE_SAMPLE_PEAK | EBUR128_MODE_HISTOGRAM));
    if (!state) throw std::bad_alloc();
    add_all(state.get(), reader, gain_db, report);
    peak_dbfs = reader.level().clipped() > 0 ? reader.level().peak_dbfs() : 0;
    return state;
}

}  // namespace

LoudnessState measure_loudness(const Source &source, const ChooseFormat &choose_format,
                               const std::function<void(const AudioDecoder &)> &report) {
    double peak_dbfs = 0;
    LoudnessState state = measure(source, choose_format, 0, peak_dbfs, report);
    // A file that was clipped is read again with a lower gain.
    if (peak_dbfs > 0) state = measure(source, choose_format, -std::ceil(peak_dbfs), peak_dbfs, report);
    return state;
}

std::optional<ReplayGain> replay_gain(std::span<ebur128_state *const> states) {
    std::vector<ebur128_state *> all(states.begin(), states.end());
    double loudness = -HUGE_VAL;
    if (all.empty() || ebur128_loudness_global_multiple(all.data(), all.size(), &loudness) != EBUR128_SUCCESS ||
        !std::isfinite(loudness)) {
        return std::nullopt;
    }
    ReplayGain result{reference_loudness - loudness, 0};
    for (ebur128_state *state : all) {
        for (unsigned channel = 0; channel < state->channels; ++channel) {
            double peak = 0;
            check(ebur128_sample_peak(state, channel, &peak));
            result.peak = std::max(result.peak, peak);
        }
    }
    return result;
}

}  // namespace tavik
