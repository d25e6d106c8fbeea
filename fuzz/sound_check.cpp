#include "sound_check.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "support/checked_encoder.h"
#include "support/require.h"

namespace tavik_fuzz {
namespace {

constexpr std::size_t older_half = 2;

double energy(std::span<const float> samples) {
    return std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
}

// Factor by which the decoder's filter may multiply the energy of an error. It is unbounded: it becomes huge for
// filters that predict a spectrum almost exactly, such as that of a single click in silence.
double tns_gain(const tavik_test::ChannelStream &channel) {
    double gain = 1;
    for (const int coef : channel.tns_coef) {
        const double reflection = std::sin(coef * M_PI / (coef >= 0 ? 15 : 17));
        gain /= 1 - reflection * reflection;
    }
    return gain;
}

}  // namespace

SoundCheck::SoundCheck(const EncoderConfig &config)
    : is_exact_enough_(config.sample_rate <= 32000 && config.bit_rate >= 4 * config.sample_rate),
      is_pair_(config.channel_mode == TAVIK_MODE_STEREO),
      frames_(tavik_test::channel_count(config)) {
    for (auto &channel : frames_) channel.fill(Samples(TAVIK_FRAME_LENGTH));
}

void SoundCheck::take_input(std::span<const std::int16_t> pcm) {
    for (std::size_t channel = 0; channel < frames_.size(); ++channel) {
        auto &frames = frames_[channel];
        std::rotate(frames.begin(), frames.end() - 1, frames.end());
        std::fill(frames[0].begin(), frames[0].end(), 0.0F);
        for (std::size_t i = 0; i < pcm.size() / frames_.size(); ++i) frames[0][i] = pcm[i * frames_.size() + channel];
    }
}

// With mid/side coding, noise in one channel of a pair may come from the other one.
double SoundCheck::energy_around(std::size_t channel) const {
    double sum = 0;
    for (std::size_t c = 0; c < frames_.size(); ++c) {
        if (c != channel && !is_pair_) continue;
        for (std::size_t age = 1; age < 4; ++age) sum += energy(frames_[c][age]);
    }
    return sum;
}

void SoundCheck::check(const tavik_test::Frame &frame, const tavik_test::DecodedFrame &decoded) {
    constexpr double harmless_gain = 8;
    const bool is_checkable =
        std::ranges::all_of(frame.channels, [](const auto &channel) { return tns_gain(channel) < harmless_gain; });
    const bool was_checkable = std::exchange(was_checkable_, is_checkable);
    if (!is_checkable || !was_checkable || !is_exact_enough_ || decoded.empty()) return;
    for (std::size_t channel = 0; channel < frames_.size(); ++channel) {
        double error = 0;
        for (std::size_t i = 0; i < TAVIK_FRAME_LENGTH; ++i) {
            const double difference = 32768.0 * decoded[channel][i] - frames_[channel][older_half][i];
            error += difference * difference;
        }
        const double around = energy_around(channel);
        constexpr double steps = 2;  // error of a sample in near silence, before the decoder's filter
        constexpr double floor = steps * steps * harmless_gain * TAVIK_FRAME_LENGTH;
        tavik_test::require(error <= around / 16 + floor, "channel ", channel, " decodes with an error of energy ",
                            error, " in a signal of ", around);
    }
}

}  // namespace tavik_fuzz
