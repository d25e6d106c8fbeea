// Draws choices from the bytes of a fuzzer's input. After their end, everything is 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tavik_fuzz {

class InputBytes {
 public:
    explicit InputBytes(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool empty() const { return bytes_.empty(); }

    std::uint8_t byte() {
        if (bytes_.empty()) return 0;
        const std::uint8_t first = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return first;
    }

    std::uint16_t word() {
        const unsigned low = byte();
        return static_cast<std::uint16_t>(low | byte() * 256u);
    }

    std::uint32_t long_word() {
        const std::uint32_t low = word();
        return low | std::uint32_t{word()} << 16;
    }

    // A number below `limit`, which is at most 65536.
    std::uint32_t below(std::uint32_t limit) { return (limit <= 256 ? byte() : word()) % limit; }

    // A number from `low` to `high`; each end has a probability of at least 1/16.
    std::uint32_t between(std::uint32_t low, std::uint32_t high) {
        const std::uint8_t choice = byte();
        if (choice < 16) return low;
        if (choice < 32) return high;
        return low + static_cast<std::uint32_t>(std::uint64_t{word()} * (high - low) / 65535);
    }

 private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace tavik_fuzz
