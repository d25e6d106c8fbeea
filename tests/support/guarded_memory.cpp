#include "support/guarded_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace tavik_test {
namespace {

constexpr std::uint8_t guard_value = 0xc3;

}  // namespace

GuardedMemory::GuardedMemory(std::size_t capacity) : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    const std::size_t size = (std::max<std::size_t>(capacity, 1) + page_ - 1) / page_ * page_;
    void *all = mmap(nullptr, page_ + size + page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) throw std::bad_alloc();
    accessible_ = {static_cast<std::uint8_t *>(all) + page_, size};
    if (mprotect(accessible_.data(), size, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
}

GuardedMemory::~GuardedMemory() { munmap(accessible_.data() - page_, page_ + accessible_.size() + page_); }

std::span<std::uint8_t> GuardedMemory::block(std::size_t size, std::uint8_t stale, Flush flush, std::size_t distance) {
    block_ = flush == Flush::with_end ? accessible_.last(size) : accessible_.subspan(distance, size);
    std::fill(accessible_.begin(), accessible_.end(), guard_value);
    std::fill(block_.begin(), block_.end(), stale);
    return block_;
}

bool GuardedMemory::guard_is_intact() const {
    const auto is_intact = [](std::uint8_t byte) { return byte == guard_value; };
    return std::all_of(accessible_.data(), block_.data(), is_intact) &&
           std::all_of(block_.data() + block_.size(), accessible_.data() + accessible_.size(), is_intact);
}

}  // namespace tavik_test
