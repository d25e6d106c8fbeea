// Input, step 3: gain, and conversion to 16 bits with clipping.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tavik {

// Amplitude factor for a gain in dB.
double to_factor(double gain_db);

// Applies a gain, rounds to 16 bits and counts clipped samples.
class Level {
 public:
    explicit Level(double gain_db = 0) : gain_db_(gain_db), factor_(static_cast<float>(to_factor(gain_db))) {}

    // Converts samples with full scale 1 into the first in.size() elements of `out`, with clipping.
    void to_16_bits(std::span<const float> in, std::span<int16_t> out);

    bool has_gain() const { return factor_ != 1; }

    // Number of clipped samples so far, and the peak before clipping in dBFS.
    uint64_t clipped() const { return clipped_; }
    double peak_dbfs() const;

    // A warning if samples were clipped, with the gain that avoids it.
    std::optional<std::string> warning() const;

 private:
    void count_clipped(std::span<const float> in);

    double gain_db_;
    float factor_;
    uint64_t clipped_ = 0;
    float peak_ = 0;
};

}  // namespace tavik
