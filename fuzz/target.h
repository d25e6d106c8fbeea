// What every fuzz target provides to the two programs made of it: the fuzzer, and the replay of its corpus.
#pragma once

#include <cstdint>
#include <span>

#include "support/digest.h"

namespace tavik_fuzz {

// What one input made the library do.
struct Outcome {
    std::uint64_t frames = 0;
    tavik_test::Digest output;  // of all that the library put out: the same in every build
};

// Runs one input. Throws std::exception for anything that must not happen.
Outcome run_target(std::span<const std::uint8_t> input);

}  // namespace tavik_fuzz
