// The loops are written so that compilers vectorise them: every converted sample passes through them.
#include "level.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

namespace tavik {
namespace {

constexpr float full_scale = 32768;

// Adding this to a float below 2^22 leaves the nearest integer in the low bits of the sum.
constexpr float rounding = 0x1.8p23F;

// Samples that are processed together.
constexpr size_t lanes = 8;

int16_t round_to_16_bits(float sample) {
    const float limited = std::min(std::max(sample * full_scale, -full_scale), full_scale - 1);
    return static_cast<int16_t>(std::bit_cast<uint32_t>(limited + rounding));
}

// 1234567 becomes "1,234,567".
std::string with_thousands_separators(uint64_t number) {
    const std::string digits = std::to_string(number);
    std::string text;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
        text += digits[i];
    }
    return text;
}

}  // namespace

double to_factor(double gain_db) { return std::pow(10, gain_db / 20); }

void Level::to_16_bits(std::span<const float> in, std::span<int16_t> out) {
    std::array<float, lanes> highest{};
    const auto convert = [&](size_t i, size_t lane) {
        const float product = in[i] * factor_;
        const float sample = product == product ? product : 0;  // NaN becomes silence
        const float magnitude = std::abs(sample);
        highest[lane] = highest[lane] < magnitude ? magnitude : highest[lane];
        out[i] = round_to_16_bits(sample);
    };
    const size_t whole = in.size() - in.size() % lanes;
    for (size_t i = 0; i < whole; i += lanes) {
        for (size_t lane = 0; lane < lanes; ++lane) convert(i + lane, lane);
    }
    for (size_t i = whole; i < in.size(); ++i) convert(i, 0);

    peak_ = std::max(peak_, std::ranges::max(highest));
    if (std::ranges::max(highest) > 1) count_clipped(in);
}

void Level::count_clipped(std::span<const float> in) {
    clipped_ += static_cast<uint64_t>(
        std::ranges::count_if(in, [this](float sample) { return std::abs(sample * factor_) > 1; }));
}

double Level::peak_dbfs() const { return 20 * std::log10(static_cast<double>(peak_)); }

std::optional<std::string> Level::warning() const {
    if (clipped_ == 0) return std::nullopt;
    const double safe_gain = std::floor((gain_db_ - peak_dbfs()) * 10) / 10;
    return fmt::format("{} sample{} clipped, peak {:+.1f} dBFS; use --gain {:.1f}", with_thousands_separators(clipped_),
                       clipped_ == 1 ? "" : "s", peak_dbfs(), safe_gain);
}

}  // namespace tavik
