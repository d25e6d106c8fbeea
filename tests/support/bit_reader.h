// Reads a stream bit by bit, most significant bit first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace tavik_test {

// A violation of the stream syntax. The position is in bits from the start of the frame, its header included.
class StreamError : public std::runtime_error {
 public:
    StreamError(const std::string &message, std::size_t bit_position)
        : std::runtime_error(message + " (bit " + std::to_string(bit_position) + ")"), bit_position_(bit_position) {}

    std::size_t bit_position() const { return bit_position_; }

 private:
    std::size_t bit_position_;
};

class BitReader {
 public:
    explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    // Bits read so far.
    std::size_t position() const { return position_; }

    std::size_t bits_left() const { return 8 * bytes_.size() - position_; }

    // Throws StreamError for a fault just before the current position.
    [[noreturn]] void fail(const std::string &message) const { throw StreamError(message, position_); }

    unsigned read_bit() {
        if (bits_left() == 0) fail("stream ends too early");
        const unsigned bit = bytes_[position_ / 8] >> (7 - position_ % 8) & 1u;
        ++position_;
        return bit;
    }

    // Reads an unsigned number of `count` bits, 0 to 32.
    std::uint32_t read(unsigned count) {
        std::uint32_t value = 0;
        for (; count > 0; --count) value = value << 1 | read_bit();
        return value;
    }

 private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

}  // namespace tavik_test
