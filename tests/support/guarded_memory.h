// Memory for the library that ends where the process may not go on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "support/require.h"

namespace tavik_test {

// Where a block lies: against the page behind it, or against the page in front of it.
enum class Flush { with_end, with_start };

// Up to `capacity` bytes between two pages without access. Reading or writing beyond the side of a block that is flush
// with a page stops the program; on its other side stand bytes of a guard value.
class GuardedMemory {
 public:
    explicit GuardedMemory(std::size_t capacity);
    ~GuardedMemory();
    GuardedMemory(const GuardedMemory &) = delete;
    GuardedMemory &operator=(const GuardedMemory &) = delete;

    // `size` bytes full of `stale`, which the library must not rely on. Flush with the end they are aligned as `size`
    // is, up to a page; flush with the start they begin `distance` bytes behind it.
    std::span<std::uint8_t> block(std::size_t size, std::uint8_t stale, Flush flush = Flush::with_end,
                                  std::size_t distance = 0);

    // Whether everything around the latest block is as it was.
    bool guard_is_intact() const;

 private:
    std::size_t page_;
    std::span<std::uint8_t> accessible_;
    std::span<std::uint8_t> block_;
};

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

    // Throws std::runtime_error for a write in front of the array.
    void check_guard() const { require(memory_.guard_is_intact(), "write in front of an array"); }

 private:
    GuardedMemory memory_;
    std::span<T> values_;
};

}  // namespace tavik_test
