// A digest of numbers that is the same on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tavik_test {

// 64-bit FNV-1a of all values given, each as its bytes from the lowest up: machines of either byte order agree.
class Digest {
 public:
    template <typename T>
    void add(std::span<const T> values) {
        for (const T value : values) {
            for (std::size_t byte = 0; byte < sizeof(T); ++byte) {
                value_ = (value_ ^ (static_cast<std::uint64_t>(value) >> 8 * byte & 0xff)) * 0x100000001b3u;
            }
        }
    }

    template <typename T>
    void add(T value) {
        add(std::span<const T>(&value, 1));
    }

    std::uint64_t value() const { return value_; }

 private:
    std::uint64_t value_ = 0xcbf29ce484222325u;
};

}  // namespace tavik_test
