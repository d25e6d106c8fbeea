// The interface that each fuzz target implements for the fuzzer and the replay of the corpus.
#pragma once

#include <cstdint>
#include <span>

#include "support/digest.h"

namespace tavik_fuzz {

// The result of one input.
struct Outcome {
    std::uint64_t frames = 0;
    tavik_test::Digest output;  // of all output of the library: must be the same in every build
};

// Runs one input. Throws std::exception if a check fails.
Outcome run_target(std::span<const std::uint8_t> input);

}  // namespace tavik_fuzz
