// What every fuzz target provides to the two programs made of it: the fuzzer, and the replay of its corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace tavik_fuzz {

// What one input made the library do.
struct Outcome {
    std::uint64_t units = 0;                   // frames encoded, or stage functions called
    std::uint64_t hash = 0xcbf29ce484222325u;  // FNV-1a of all that the library put out: the same in every build

    template <typename T>
    void add_output(std::span<const T> values) {
        static_assert(std::has_unique_object_representations_v<T>);
        for (const std::byte byte : std::as_bytes(values)) {
            hash = (hash ^ std::to_integer<std::uint8_t>(byte)) * 0x100000001b3u;
        }
    }
};

// Runs one input. Throws std::exception for anything that must not happen.
Outcome run_target(std::span<const std::uint8_t> input);

// What Outcome::units counts.
extern const char *const unit_name;

}  // namespace tavik_fuzz
