// Endless test signals that are difficult for an encoder. A fuzzer controls them with a few bytes.
#pragma once

#include <cstdint>
#include <random>
#include <span>

#include "input_bytes.h"

namespace tavik_fuzz {

// Draws the kind and parameters of a signal, then generates its samples block by block.
class Synthesiser {
 public:
    explicit Synthesiser(InputBytes &input);

    // Fills interleaved samples of `channels` channels; continues the signal of the previous call.
    void fill(std::span<std::int16_t> pcm, unsigned channels);

    // Fills one of the channels and leaves the others unchanged.
    void fill_channel(std::span<std::int16_t> pcm, unsigned channels, unsigned channel);

 private:
    enum class Kind : std::uint8_t {
        silence,
        constant,
        square,              // `period` samples up, `period` samples down
        clicks,              // single samples, `period` apart
        silence_full_scale,  // `period` samples of silence, then `period` samples of random full-scale values
        tone,
        two_tones,
        sweep,
        noise,
        dither,  // -1, 0 and 1
        bursts,  // decaying noise, every `period` samples
        ramp,
        pattern,  // raw samples from the input, repeated
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
    std::uint16_t pitch_;   // frequency of a tone in units of 2^-16 x sampling rate
    std::mt19937 random_;
    std::int16_t pattern_[16];
    std::uint64_t time_ = 0;
};

}  // namespace tavik_fuzz
