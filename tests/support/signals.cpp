#include "support/signals.h"

#include <cstdlib>
#include <random>

namespace tavik_test {
namespace {

struct Channel {
    unsigned number;
    unsigned sample_rate;
    std::mt19937 random;  // of this channel alone
    std::vector<std::int16_t> samples;
};

constexpr std::int16_t highest = 32767, lowest = -32768;

// ---- Signals ----

void make_dither(Channel &channel) {
    for (auto &sample : channel.samples) sample = static_cast<std::int16_t>(static_cast<int>(channel.random() % 3) - 1);
}

void make_white_noise(Channel &channel) {
    for (auto &sample : channel.samples) sample = static_cast<std::int16_t>(channel.random());
}

void make_sweep(Channel &channel) {
    const std::uint64_t length = channel.samples.size();
    std::uint32_t phase = 0;
    for (std::uint64_t time = 0; time < length; ++time) {
        const std::uint64_t progress = channel.number % 2 == 0 ? time : length - 1 - time;
        phase += static_cast<std::uint32_t>((progress << 31) / length);
        channel.samples[time] = sine(30000, phase);
    }
}

void make_full_scale_square(Channel &channel) {
    std::size_t half_period = 0;
    for (std::size_t time = 0; time < channel.samples.size(); ++time) {
        if (time % 2500 == 0) half_period = 1 + channel.random() % 200;
        channel.samples[time] = time / half_period % 2 == 0 ? highest : lowest;
    }
}

void make_silence_full_scale(Channel &channel) {
    bool is_silent = false;
    for (std::size_t time = 0; time < channel.samples.size(); ++time) {
        if (time % 700 == 0) is_silent = channel.random() % 2 == 0;
        if (!is_silent) channel.samples[time] = channel.random() % 2 == 0 ? highest : lowest;
    }
}

// Noise that is stronger in the low frequencies.
void make_transients(Channel &channel) {
    std::int64_t level = 0, noise = 0;
    for (std::size_t time = 0; time < channel.samples.size(); ++time) {
        if (time % 400 == 200 && channel.random() % 7 == 0) level = 4000 + channel.random() % 28000;
        noise = (noise + static_cast<std::int16_t>(channel.random())) / 2;
        channel.samples[time] = static_cast<std::int16_t>(noise * level >> 15);
        level -= (level + 127) >> 7;
    }
}

// Adds one partial of one of the three notes; the higher it is, the faster it falls. Every other chord is in the
// middle, the others have a place for each note.
void add_partial(Channel &channel, std::size_t note, unsigned number) {
    constexpr std::size_t chord_length = 5000;
    constexpr std::uint32_t hertz[4][3] = {{220, 277, 330}, {147, 294, 370}, {165, 247, 415}, {185, 220, 554}};
    constexpr std::int64_t left_and_right_levels[2][3] = {{4000, 3000, 1000}, {2000, 2500, 3500}};
    std::uint64_t increment = 0, phase = 0;
    std::int64_t level = 0;  // Q16
    for (std::size_t time = 0; time < channel.samples.size(); ++time) {
        if (time % chord_length == 0) {
            const std::size_t chord = time / chord_length;
            increment = (std::uint64_t{hertz[chord % 4][note]} * number << 32) / channel.sample_rate;
            level = left_and_right_levels[chord % 2 == 0 ? 0 : channel.number % 2][note] * 65536 / number;
        }
        phase += increment;
        level -= level * number >> 12;
        channel.samples[time] = static_cast<std::int16_t>(channel.samples[time] + sine(level >> 16, phase));
    }
}

void make_music(Channel &channel) {
    for (unsigned i = 0; i < 21; ++i) add_partial(channel, i % 3, 1 + i / 3);
}

constexpr std::array<std::string_view, all_signal_kinds.size()> names = {
    "silence", "dither", "white_noise", "sweep", "full_scale_square", "silence_full_scale", "transients", "music"};
constexpr std::array<void (*)(Channel &), all_signal_kinds.size()> makers = {
    [](Channel &) {},        make_dither,     make_white_noise, make_sweep, make_full_scale_square,
    make_silence_full_scale, make_transients, make_music};

}  // namespace

// The sine is a parabola per half turn, corrected.
std::int16_t sine(std::int64_t level, std::uint64_t phase) {
    const std::int64_t half_turns = static_cast<std::int32_t>(phase) >> 16;  // Q15, -1 to 1
    const std::int64_t parabola = half_turns * (32768 - std::abs(half_turns)) >> 13;
    const std::int64_t corrected = parabola * (25395 + (7373 * std::abs(parabola) >> 15)) >> 15;
    return static_cast<std::int16_t>(level * corrected >> 15);
}

std::string_view name(SignalKind kind) { return names.at(static_cast<std::size_t>(kind)); }

std::vector<std::int16_t> make_signal(SignalKind kind, unsigned channels, std::size_t samples_per_channel,
                                      unsigned sample_rate, std::uint32_t seed) {
    std::vector<std::int16_t> pcm(channels * samples_per_channel);
    for (unsigned number = 0; number < channels; ++number) {
        Channel channel{number, sample_rate, std::mt19937(seed * 16 + number), {}};
        channel.samples.resize(samples_per_channel);
        makers.at(static_cast<std::size_t>(kind))(channel);
        for (std::size_t t = 0; t < samples_per_channel; ++t) pcm[t * channels + number] = channel.samples[t];
    }
    return pcm;
}

}  // namespace tavik_test
