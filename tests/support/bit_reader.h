// Reads a stream bit by bit, most significant bit first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace tavik_test {

// A violation of the stream syntax.
struct StreamError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class BitReader {
 public:
    explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    // Bits read so far.
    std::size_t position() const { return position_; }

    std::size_t bits_left() const { return 8 * bytes_.size() - position_; }

    // Throws StreamError for a fault just before the current position unless the condition holds.
    void require(bool condition, const char *message) const {
        if (!condition) throw StreamError(std::string(message) + " (bit " + std::to_string(position_) + ")");
    }

    // Reads an unsigned number of `count` bits, 0 to 32.
    std::uint32_t read(unsigned count) {
        require(count <= bits_left(), "stream ends too early");
        std::uint32_t value = 0;
        for (; count > 0; --count, ++position_) value = 2 * value + (bytes_[position_ / 8] >> (7 - position_ % 8) & 1u);
        return value;
    }

    // Reads a number that must have the value given.
    void expect(unsigned count, std::size_t value, const char *field) { require(read(count) == value, field); }

 private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

}  // namespace tavik_test
