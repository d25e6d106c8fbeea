#include "support/signals.h"

#include <algorithm>
#include <limits>

namespace tavik_test {
namespace {

using Levels = std::numeric_limits<std::int16_t>;

std::int16_t clamped(std::int64_t level) {
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(level, Levels::min(), Levels::max()));
}

// ---- Random numbers ----

// Marsaglia's xorshift generator of 32 bits.
class Random {
 public:
    explicit Random(std::uint32_t seed) : state_(seed * 2654435761u + 0x9e3779b9u) {
        if (state_ == 0) state_ = 1;
    }

    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }

    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(std::uint64_t{next()} * limit >> 32); }

    std::uint32_t between(std::uint32_t lowest, std::uint32_t highest) { return lowest + below(highest - lowest + 1); }

    std::int16_t sample() { return static_cast<std::int16_t>(next() >> 16); }

    std::int16_t full_scale_sample() { return next() >> 31 == 0 ? Levels::max() : Levels::min(); }

 private:
    std::uint32_t state_;
};

// ---- Sine ----

constexpr std::uint32_t quarter_turn = 1u << 30;  // a phase is a fraction of a turn in units of 2^-32
constexpr unsigned table_bits = 12;               // the sine table has 2^12 entries to the turn
constexpr unsigned fraction_bits = 32 - table_bits;
constexpr std::size_t quarter_table = std::size_t{1} << (table_bits - 2);
constexpr std::int64_t one_q30 = 1 << 30;

// One quarter of a turn by recurrence: each entry is the one before, as the point (cosine, sine) of the unit circle,
// turned by 2 pi / 4096. Rounding errors of 1024 turns stay below 2^-20.
std::array<std::int64_t, quarter_table + 1> quarter_sine_table() {
    constexpr std::int64_t step_cosine = 1073740561;  // 2^30 cos(2 pi / 4096)
    constexpr std::int64_t step_sine = 1647099;       // 2^30 sin(2 pi / 4096)
    constexpr std::int64_t half = one_q30 / 2;
    std::array<std::int64_t, quarter_table + 1> table{};
    std::int64_t cosine = one_q30;
    std::int64_t sine = 0;
    for (std::int64_t &entry : table) {
        entry = std::min(sine, one_q30);
        const std::int64_t next_cosine = (cosine * step_cosine - sine * step_sine + half) >> 30;
        sine = (sine * step_cosine + cosine * step_sine + half) >> 30;
        cosine = next_cosine;
    }
    return table;
}

// Sine in Q30, interpolated between table entries.
std::int64_t sine_q30(std::uint32_t phase) {
    static const auto table = quarter_sine_table();
    std::uint32_t in_quarter = phase % quarter_turn;
    if ((phase / quarter_turn) % 2 == 1) in_quarter = quarter_turn - in_quarter;
    const std::size_t index = in_quarter >> fraction_bits;
    const std::int64_t fraction = in_quarter & ((1u << fraction_bits) - 1);
    const std::int64_t next = table[std::min(index + 1, quarter_table)];
    const std::int64_t value = table[index] + ((next - table[index]) * fraction >> fraction_bits);
    return phase < 2 * quarter_turn ? value : -value;
}

// Phase increment per sample.
std::uint32_t increment(std::uint32_t millihertz, unsigned sample_rate) {
    return static_cast<std::uint32_t>((std::uint64_t{millihertz} << 32) / (std::uint64_t{1000} * sample_rate));
}

// ---- Signals ----

// Interleaved samples under construction, and what the signals need to know.
struct Canvas {
    unsigned channels;
    std::size_t length;  // samples per channel
    unsigned sample_rate;
    std::uint32_t seed;
    std::vector<std::int16_t> pcm;

    std::int16_t &at(unsigned channel, std::size_t time) { return pcm[time * channels + channel]; }

    // A random sequence of the channel's own.
    Random random(unsigned channel) const { return Random(seed * 16 + channel); }
};

// Puts level(channel, time) into every sample, in the order of time.
template <typename Level>
void fill(Canvas &canvas, Level level) {
    for (std::size_t time = 0; time < canvas.length; ++time) {
        for (unsigned channel = 0; channel < canvas.channels; ++channel) {
            canvas.at(channel, time) = clamped(level(channel, time));
        }
    }
}

// Puts one sample after the other into each channel: those that a generator of its own, make(random), gives.
template <typename Make>
void fill_channels(Canvas &canvas, Make make) {
    for (unsigned channel = 0; channel < canvas.channels; ++channel) {
        Random random = canvas.random(channel);
        auto next_sample = make(random);
        for (std::size_t time = 0; time < canvas.length; ++time) canvas.at(channel, time) = next_sample();
    }
}

void make_dc(Canvas &canvas) {
    constexpr std::int64_t moderate_level = 12345;
    fill(canvas,
         [](unsigned channel, std::size_t) { return channel % 2 == 0 ? moderate_level : std::int64_t{Levels::min()}; });
}

void make_dither(Canvas &canvas) {
    fill_channels(canvas, [](Random &random) {
        return [&random] { return static_cast<std::int16_t>(static_cast<int>(random.below(3)) - 1); };
    });
}

void make_white_noise(Canvas &canvas) {
    fill_channels(canvas, [](Random &random) { return [&random] { return random.sample(); }; });
}

void make_sweep(Canvas &canvas) {
    constexpr std::int64_t level = 30000;
    const std::uint64_t lowest = increment(20'000, canvas.sample_rate);
    const std::uint64_t span = (std::uint64_t{49} << 32) / 100 - lowest;
    std::vector<std::uint32_t> phases(canvas.channels, 0);
    fill(canvas, [&](unsigned channel, std::size_t time) {
        const std::size_t progress = channel % 2 == 0 ? time : canvas.length - 1 - time;
        phases[channel] += static_cast<std::uint32_t>(lowest + span * progress / canvas.length);
        return level * sine_q30(phases[channel]) >> 30;
    });
}

void make_full_scale_square(Canvas &canvas) {
    constexpr std::uint32_t longest_half_period = 200;
    constexpr std::uint32_t half_periods_per_pitch = 50;
    fill_channels(canvas, [](Random &random) {
        return [&random, half_period = 0u, left = 0u, half_periods = 0u, level = Levels::max()]() mutable {
            if (left == 0) {
                if (half_periods++ % half_periods_per_pitch == 0) half_period = random.between(1, longest_half_period);
                left = half_period;
                level = level == Levels::max() ? Levels::min() : Levels::max();
            }
            --left;
            return level;
        };
    });
}

void make_silence_full_scale(Canvas &canvas) {
    fill_channels(canvas, [](Random &random) {
        return [&random, left = 0u, is_silent = false]() mutable {
            if (left == 0) {
                left = random.between(300, 3000);
                is_silent = !is_silent;
            }
            --left;
            return is_silent ? std::int16_t{0} : random.full_scale_sample();
        };
    });
}

void make_clicks(Canvas &canvas) {
    fill_channels(canvas, [](Random &random) {
        return [&random, pause = random.between(100, 1000)]() mutable {
            if (pause-- > 0) return std::int16_t{0};
            pause = random.between(500, 5000);
            return random.below(2) == 0 ? random.full_scale_sample() : random.sample();
        };
    });
}

void make_transients(Canvas &canvas) {
    constexpr unsigned decay_shift = 7;  // the level falls by 1/128 per sample
    const unsigned rate = canvas.sample_rate;
    fill_channels(canvas, [rate](Random &random) {
        const std::uint32_t tone = increment(2'500'000, rate);
        return [&random, rate, tone, level = std::int64_t{0}, phase = 0u, pause = random.below(rate / 8)]() mutable {
            if (pause-- == 0) {
                pause = random.between(rate / 20, rate / 4);
                if (random.below(3) == 0) return random.full_scale_sample();
                level = random.between(4000, Levels::max());
                phase = 0;
            }
            phase += tone;
            const std::int64_t mixture = (random.sample() + (sine_q30(phase) >> 15)) / 2;
            level -= (level + (1 << decay_shift) - 1) >> decay_shift;
            return clamped(mixture * level >> 15);
        };
    });
}

// ---- Music ----

struct Partial {
    std::uint32_t phase;
    std::uint32_t phase_increment;
    std::int64_t level;    // Q16 of a sample
    unsigned decay_shift;  // every 16 samples the level falls by 2^-decay_shift
    std::int64_t left;     // weights in Q8
    std::int64_t right;
};

constexpr std::size_t notes_per_chord = 3;
constexpr std::array<std::array<std::uint32_t, notes_per_chord>, 4> chords_millihertz = {{{220'000, 277'183, 329'628},
                                                                                          {146'832, 293'665, 369'994},
                                                                                          {164'814, 246'942, 415'305},
                                                                                          {184'997, 220'000, 554'365}}};
constexpr unsigned decay_interval = 16;  // samples

std::vector<Partial> strike_chord(std::size_t chord, unsigned sample_rate, Random &random) {
    constexpr std::int64_t note_level = 5500;
    constexpr std::uint32_t partials_per_note = 8;
    constexpr std::array<std::int64_t, notes_per_chord> left_weights = {256, 200, 60};
    std::vector<Partial> partials;
    for (std::size_t note = 0; note < notes_per_chord; ++note) {
        for (std::uint32_t number = 1; number <= partials_per_note; ++number) {
            const std::uint32_t millihertz = chords_millihertz[chord][note] * number;
            if (millihertz > 450 * sample_rate) break;
            const unsigned decay_shift = number <= 2 ? 9 : number <= 5 ? 8 : 7;
            partials.push_back({random.next(), increment(millihertz, sample_rate), (note_level << 16) / number,
                                decay_shift, left_weights[note], 256 - left_weights[note] / 2});
        }
    }
    return partials;
}

void make_music(Canvas &canvas) {
    Random random = canvas.random(0);
    const std::size_t chord_length = canvas.sample_rate / 3;
    std::vector<Partial> partials;
    for (std::size_t time = 0; time < canvas.length; ++time) {
        if (time % chord_length == 0) {
            const std::size_t chord = (time / chord_length + canvas.seed) % chords_millihertz.size();
            partials = strike_chord(chord, canvas.sample_rate, random);
        }
        std::int64_t left = 0;
        std::int64_t right = 0;
        for (Partial &partial : partials) {
            partial.phase += partial.phase_increment;
            if (time % decay_interval == 0) partial.level -= partial.level >> partial.decay_shift;
            const std::int64_t level = (partial.level >> 16) * sine_q30(partial.phase) >> 30;
            left += level * partial.left;
            right += level * partial.right;
        }
        for (unsigned channel = 0; channel < canvas.channels; ++channel) {
            canvas.at(channel, time) = clamped((channel % 2 == 0 ? left : right) >> 8);
        }
    }
}

// ---- Speech ----

// Second-order resonator: y[n] = 2 r cos(t) y[n-1] - r^2 y[n-2] + sin(t) x[n]. The sine makes the response to a pulse
// as high as the pulse, whatever the frequency.
class Resonator {
 public:
    void tune(std::uint32_t hertz, std::uint32_t bandwidth, unsigned sample_rate) {
        constexpr std::int64_t pi_q14 = 51472;
        const std::uint32_t angle = increment(hertz * 1000, sample_rate);
        const std::int64_t radius = one_q14 - pi_q14 * bandwidth / sample_rate;  // Q14
        feedback1_ = 2 * radius * sine_q30(angle + quarter_turn) >> 30;
        feedback2_ = radius * radius >> 14;
        gain_ = sine_q30(angle) >> 16;
    }

    // Input and output in Q6 of a sample.
    std::int64_t filter(std::int64_t input) {
        const std::int64_t output = (feedback1_ * last_ - feedback2_ * before_last_ + gain_ * input) / one_q14;
        before_last_ = last_;
        last_ = output;
        return output;
    }

 private:
    static constexpr std::int64_t one_q14 = 1 << 14;
    std::int64_t feedback1_ = 0;  // Q14, as the other two
    std::int64_t feedback2_ = 0;
    std::int64_t gain_ = 0;
    std::int64_t last_ = 0;
    std::int64_t before_last_ = 0;
};

// One voice: a row of vowels, fricatives and pauses of random lengths.
class Voice {
 public:
    Voice(Random random, unsigned sample_rate) : random_(random), sample_rate_(sample_rate) {}

    std::int16_t next_sample() {
        if (left_ == 0) start_sound();
        --left_;
        const std::int64_t excitation = excite() * 64;
        std::int64_t sum = 0;
        for (Resonator &formant : formants_) sum += formant.filter(excitation);
        return clamped(sum / 64);
    }

 private:
    enum class Sound { vowel, fricative, pause };
    static constexpr std::size_t formant_count = 3;

    void start_sound() {
        static constexpr std::array<std::array<std::uint32_t, formant_count>, 4> vowels = {
            {{700, 1200, 2500}, {300, 2200, 3000}, {320, 800, 2300}, {500, 1700, 2450}}};
        static constexpr std::array<std::uint32_t, formant_count> fricative = {1500, 2800, 3600};
        static constexpr std::array<Sound, 6> sounds = {Sound::vowel,     Sound::vowel, Sound::vowel,
                                                        Sound::fricative, Sound::pause, Sound::pause};
        left_ = random_.between(sample_rate_ / 12, sample_rate_ / 4);
        sound_ = sounds[random_.below(sounds.size())];
        pitch_millihertz_ = random_.between(95'000, 180'000);
        const auto &tuning = sound_ == Sound::fricative ? fricative : vowels[random_.below(vowels.size())];
        const std::uint32_t bandwidth = sound_ == Sound::fricative ? 500 : 80;
        for (std::size_t i = 0; i < formant_count; ++i) formants_[i].tune(tuning[i], bandwidth, sample_rate_);
    }

    // A pulse now and then, with falling pitch, for a vowel; noise for a fricative.
    std::int64_t excite() {
        constexpr std::int64_t pulse_level = 9000;
        if (sound_ == Sound::pause) return 0;
        if (sound_ == Sound::fricative) return random_.sample() / 16;
        if (until_pulse_-- > 0) return 0;
        until_pulse_ = 1000 * sample_rate_ / pitch_millihertz_;
        pitch_millihertz_ -= pitch_millihertz_ / 128;
        return pulse_level;
    }

    Random random_;
    unsigned sample_rate_;
    Sound sound_ = Sound::pause;
    std::uint32_t left_ = 0;         // samples of the sound still to come
    std::uint32_t until_pulse_ = 0;  // samples
    std::uint32_t pitch_millihertz_ = 0;
    std::array<Resonator, formant_count> formants_;
};

// The right channel is somewhat softer; each has faint noise of its own.
void make_speech(Canvas &canvas) {
    Voice voice(canvas.random(0), canvas.sample_rate);
    Random noise = canvas.random(1);
    std::int64_t spoken = 0;
    fill(canvas, [&](unsigned channel, std::size_t) {
        if (channel == 0) spoken = voice.next_sample();
        const std::int64_t weight = channel % 2 == 0 ? 8 : 7;
        return spoken * weight / 8 + noise.below(9) - 4;
    });
}

}  // namespace

std::string_view name(SignalKind kind) {
    static constexpr std::array<std::string_view, all_signal_kinds.size()> names = {
        "silence", "dc",         "dither", "white_noise", "sweep", "full_scale_square", "silence_full_scale",
        "clicks",  "transients", "music",  "speech"};
    return names.at(static_cast<std::size_t>(kind));
}

std::vector<std::int16_t> make_signal(SignalKind kind, unsigned channels, std::size_t samples_per_channel,
                                      unsigned sample_rate, std::uint32_t seed) {
    using Maker = void (*)(Canvas &);
    static constexpr std::array<Maker, all_signal_kinds.size()> makers = {
        [](Canvas &) {},  // silence
        make_dc,         make_dither,     make_white_noise, make_sweep, make_full_scale_square, make_silence_full_scale,
        make_clicks,     make_transients, make_music,       make_speech};
    Canvas canvas{channels, samples_per_channel, sample_rate, seed, {}};
    canvas.pcm.assign(channels * samples_per_channel, 0);
    makers.at(static_cast<std::size_t>(kind))(canvas);
    return canvas.pcm;
}

}  // namespace tavik_test
