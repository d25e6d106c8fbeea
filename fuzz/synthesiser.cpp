#include "synthesiser.h"

#include <utility>

#include "support/signals.h"

namespace tavik_fuzz {

Synthesiser::Synthesiser(InputBytes &input)
    : kind_(static_cast<Kind>(input.below(static_cast<unsigned>(Kind::count)))),
      image_(static_cast<Image>(input.below(static_cast<unsigned>(Image::count)))) {
    // Full scale, quiet, or any level.
    const std::uint32_t loudness = input.below(4);
    level_ = loudness == 0 ? std::int16_t{32767} : static_cast<std::int16_t>(input.word() >> (loudness == 1 ? 12 : 0));
    period_ = 1u + input.word() % 3000;
    pitch_ = input.word();
    random_.seed(pitch_);
    for (std::int16_t &sample : pattern_) {
        sample = kind_ == Kind::pattern ? static_cast<std::int16_t>(input.word()) : std::int16_t{0};
    }
}

std::int16_t Synthesiser::scaled(std::int64_t full_scale) const {
    return static_cast<std::int16_t>(full_scale * level_ >> 15);
}

std::int16_t Synthesiser::next_sample(unsigned channel, std::uint64_t time) {
    using tavik_test::sine;
    const auto phase = time * pitch_ << 16;
    const bool is_up = time / period_ % 2 == 0;
    switch (kind_) {
        case Kind::constant: return level_;
        case Kind::square: return is_up ? level_ : static_cast<std::int16_t>(~level_);
        case Kind::clicks: return time % period_ == 0 ? level_ : std::int16_t{0};
        case Kind::silence_full_scale: return is_up ? std::int16_t{0} : random_() % 2 == 0 ? INT16_MAX : INT16_MIN;
        case Kind::tone: return sine(level_, phase);
        case Kind::two_tones:
            return static_cast<std::int16_t>(sine(level_ / 2, phase) + sine(level_ / 2, time * period_ << 16));
        case Kind::sweep: return sine(level_, time * time * pitch_);
        case Kind::noise: return scaled(random_sample());
        case Kind::dither: return static_cast<std::int16_t>(random_() % 3 - 1);
        case Kind::bursts: return static_cast<std::int16_t>(scaled(random_sample()) >> (time % period_ / 32 % 16));
        case Kind::ramp: return static_cast<std::int16_t>(time * pitch_ >> channel);
        case Kind::pattern: return pattern_[time % std::size(pattern_)];
        default: return 0;
    }
}

void Synthesiser::fill(std::span<std::int16_t> pcm, unsigned channels) {
    for (std::size_t i = 0; i < pcm.size(); i += channels, ++time_) {
        pcm[i] = next_sample(0, time_);
        if (channels == 1) continue;
        switch (image_) {
            case Image::inverted: pcm[i + 1] = static_cast<std::int16_t>(~pcm[i]); break;
            case Image::left_only: pcm[i + 1] = 0; break;
            case Image::right_only: pcm[i + 1] = std::exchange(pcm[i], std::int16_t{0}); break;
            case Image::independent: pcm[i + 1] = next_sample(1, time_ + 12345); break;
            case Image::shifted: pcm[i + 1] = static_cast<std::int16_t>(pcm[i] >> 3); break;
            default: pcm[i + 1] = pcm[i]; break;
        }
    }
}

void Synthesiser::fill_channel(std::span<std::int16_t> pcm, unsigned channels, unsigned channel) {
    for (std::size_t i = channel; i < pcm.size(); i += channels, ++time_) pcm[i] = next_sample(channel, time_);
}

}  // namespace tavik_fuzz
