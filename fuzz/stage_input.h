// What the stage targets share: guarded arrays, values that a fuzzer can steer with a few bytes, a row of stages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>

#include "input_bytes.h"
#include "support/guarded_memory.h"
#include "support/require.h"
#include "target.h"

namespace tavik_fuzz {

// `size` values that nobody may read or write beyond.
template <typename T>
class GuardedArray {
 public:
    explicit GuardedArray(std::size_t size)
        : memory_(size * sizeof(T)),
          values_(reinterpret_cast<T *>(memory_.block(size * sizeof(T), 0xa5).data()), size) {}

    T *data() { return values_.data(); }
    std::span<T> values() { return values_; }
    T &operator[](std::size_t index) { return values_[index]; }

    void check_guard() const { tavik_test::require(memory_.guard_is_intact(), "write around an array"); }

 private:
    tavik_test::GuardedMemory memory_;
    std::span<T> values_;
};

// Values of magnitude `limit` at most, `limit` below 2^31.
inline void draw_values(InputBytes &input, std::span<std::int32_t> values, std::int32_t limit) {
    enum Kind : std::uint8_t { zero, constant, extremes, alternating, noise, falling, sparse, count };
    const auto kind = static_cast<Kind>(input.below(count));
    const auto level = static_cast<std::int32_t>(input.between(0, static_cast<std::uint32_t>(limit)));
    std::minstd_rand random(1u + input.word());
    const auto any = [&] {
        return static_cast<std::int32_t>(random() % (2u * static_cast<unsigned>(level) + 1)) - level;
    };
    const std::size_t distance = 1u + input.byte();
    for (std::size_t i = 0; i < values.size(); ++i) {
        switch (kind) {
            case constant: values[i] = level; break;
            case extremes: values[i] = random() % 2 == 0 ? level : -level; break;
            case alternating: values[i] = i % 2 == 0 ? level : -level; break;
            case noise: values[i] = any(); break;
            case falling: values[i] = any() >> (i / distance % 32); break;
            case sparse: values[i] = i % distance == 0 ? any() : 0; break;
            default: values[i] = 0; break;
        }
    }
}

// Runs one stage after the other, each chosen by the input and then fed from it.
inline Outcome run_stages(std::span<const std::uint8_t> bytes,
                          std::span<void (*const)(InputBytes &, Outcome &)> stages) {
    InputBytes input(bytes);
    Outcome outcome;
    for (; !input.empty(); ++outcome.units) {
        stages[input.below(static_cast<std::uint32_t>(stages.size()))](input, outcome);
    }
    return outcome;
}

}  // namespace tavik_fuzz
