// Numbers that strain arithmetic: none, extremes, order and disorder, a few among nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>

namespace tavik_test {

struct ValuePattern {
    enum Kind : std::uint8_t { zero, constant, extremes, alternating, noise, falling, sparse, count };

    Kind kind;
    std::int32_t level;  // the largest magnitude
    std::uint32_t seed;
    std::size_t distance;  // of the values that are not 0; of the steps in which noise falls
};

// The same on every machine.
inline void fill_values(std::span<std::int32_t> values, const ValuePattern &pattern) {
    const std::int32_t level = pattern.level;
    std::minstd_rand random(pattern.seed);
    const auto any = [&] {
        return static_cast<std::int32_t>(random() % (2u * static_cast<unsigned>(level) + 1)) - level;
    };
    for (std::size_t i = 0; i < values.size(); ++i) {
        switch (pattern.kind) {
            case ValuePattern::constant: values[i] = level; break;
            case ValuePattern::extremes: values[i] = random() % 2 == 0 ? level : -level; break;
            case ValuePattern::alternating: values[i] = i % 2 == 0 ? level : -level; break;
            case ValuePattern::noise: values[i] = any(); break;
            case ValuePattern::falling: values[i] = any() >> (i / pattern.distance % 32); break;
            case ValuePattern::sparse: values[i] = i % pattern.distance == 0 ? any() : 0; break;
            default: values[i] = 0; break;
        }
    }
}

}  // namespace tavik_test
