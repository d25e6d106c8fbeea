// A piece of audio in memory, as the benchmarks encode it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tavik_bench {

struct Clip {
    std::string name;
    unsigned sample_rate;           // Hz
    unsigned channels;              // 1 or 2
    std::vector<std::int16_t> pcm;  // interleaved

    std::size_t samples_per_channel() const { return pcm.size() / channels; }
    double seconds() const { return static_cast<double>(samples_per_channel()) / sample_rate; }
};

// A file of raw interleaved 16-bit samples in the machine's byte order. Throws std::runtime_error where it cannot be
// read or is empty.
Clip read_clip(const std::string &file, unsigned sample_rate, unsigned channels);

// Ten seconds of chords, with bursts of noise that make the encoder change its window now and then. Integer arithmetic
// only: the same on every machine.
Clip synthetic_clip(unsigned sample_rate, unsigned channels);

}  // namespace tavik_bench
