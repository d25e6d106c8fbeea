// Samples that a fuzzer can steer with a few bytes: the kinds that strain an encoder, each endless.
#pragma once

#include <cstdint>
#include <random>
#include <span>

#include "input_bytes.h"

namespace tavik_fuzz {

// Draws kind and parameters of a signal, then makes its samples in any number of portions.
class Synthesiser {
 public:
    explicit Synthesiser(InputBytes &input);

    // Fills interleaved samples of `channels` channels, in continuation of what was made before.
    void fill(std::span<std::int16_t> pcm, unsigned channels);

    // Fills one channel of them and leaves the others.
    void fill_channel(std::span<std::int16_t> pcm, unsigned channels, unsigned channel);

 private:
    enum class Kind : std::uint8_t {
        silence,
        constant,
        square,              // `period` samples up, `period` samples down
        clicks,              // single samples, `period` apart
        silence_full_scale,  // `period` samples of silence, `period` samples of either extreme at random
        tone,
        two_tones,
        sweep,
        noise,
        dither,  // -1, 0 and 1
        bursts,  // noise that dies away, every `period` samples
        ramp,
        pattern,  // raw samples from the input, over and over
        count
    };
    enum class Image : std::uint8_t { same, inverted, left_only, right_only, independent, shifted, count };

    std::int16_t next_sample(unsigned channel, std::uint64_t time);
    std::int16_t scaled(std::int64_t full_scale) const;
    std::int16_t random_sample() { return static_cast<std::int16_t>(random_()); }

    Kind kind_;
    Image image_;
    std::int16_t level_;
    std::uint32_t period_;  // samples, from 1
    std::uint16_t pitch_;   // of a tone, 2^-16 turns per sample
    std::mt19937 random_;
    std::int16_t pattern_[16];
    std::uint64_t time_ = 0;
};

}  // namespace tavik_fuzz
