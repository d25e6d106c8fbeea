// The input side of the program, last step: from samples of any level to the 16 bits that the encoder takes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tavik {

// A factor from decibels.
double to_factor(double gain_db);

// Applies a gain, rounds to 16 bits, and counts what does not fit.
class Level {
 public:
    explicit Level(double gain_db = 0) : gain_db_(gain_db), factor_(static_cast<float>(to_factor(gain_db))) {}

    // Samples of full scale 1 become the first of `out`. What is above full scale is clipped.
    void to_16_bits(std::span<const float> in, std::span<int16_t> out);

    bool has_gain() const { return factor_ != 1; }

    // Samples so far that were above full scale, and the highest of all in dBFS.
    uint64_t clipped() const { return clipped_; }
    double peak_dbfs() const;

    // In words, if samples were clipped, with the gain that would have avoided it.
    std::optional<std::string> warning() const;

 private:
    void count_clipped(std::span<const float> in);

    double gain_db_;
    float factor_;
    uint64_t clipped_ = 0;
    float peak_ = 0;
};

}  // namespace tavik
