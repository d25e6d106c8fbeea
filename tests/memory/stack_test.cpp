// The stack that the entry points really touch, whatever the compiler: every call runs on a painted stack of its own.
// scripts/stack-usage proves a tighter bound for the optimised builds of GCC.
#include <gtest/gtest.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <span>
#include <vector>

#include "support/checked_encoder.h"
#include "support/golden_streams.h"
#include "support/signals.h"
#include "tavik.h"

namespace {

using namespace tavik_test;

// Bytes of stack that a call may use, on x86-64 with its return address. Clang needs the most: it inlines more.
#ifdef __OPTIMIZE__
constexpr std::ptrdiff_t limit = 2688;
#else  // every temporary has a place of its own
constexpr std::ptrdiff_t limit = 3584;
#endif

using StackPointer = const std::byte *;

[[gnu::always_inline]] inline StackPointer stack_pointer() {
    StackPointer pointer;
#if defined(__x86_64__)
    asm volatile("mov %%rsp, %0" : "=r"(pointer));
#elif defined(__aarch64__)
    asm volatile("mov %0, sp" : "=r"(pointer));
#endif
    return pointer;
}

class PaintedStack {
 public:
    // Runs `body` on this stack, freshly painted, and returns the bytes touched below the stack pointer that it
    // returns.
    std::ptrdiff_t bytes_used(const std::function<StackPointer()> &body) {
        bytes_.fill(paint);
        body_ = &body;
        ucontext_t here, there;
        getcontext(&there);
        there.uc_stack.ss_sp = bytes_.data();
        there.uc_stack.ss_size = bytes_.size();
        there.uc_link = &here;
        makecontext(
            &there, [] { start_ = (*body_)(); }, 0);
        swapcontext(&here, &there);
        return start_ - std::find_if(bytes_.begin(), bytes_.end(), [](std::byte byte) { return byte != paint; });
    }

 private:
    static constexpr std::byte paint{0xa5};
    static inline const std::function<StackPointer()> *body_;
    static inline StackPointer start_;
    alignas(16) std::array<std::byte, 65536> bytes_;
};

PaintedStack stack;

std::ptrdiff_t stack_of_init(EncoderContext &context, const EncoderConfig &config) {
    return stack.bytes_used([&] {
        const StackPointer start = stack_pointer();
        TAVIK_Init(&context, &config);
        return start;
    });
}

std::ptrdiff_t stack_of_encode(EncoderContext &context, std::span<const std::int16_t> pcm, std::uint32_t samples) {
    std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES> output;
    std::uint32_t bytes;
    return stack.bytes_used([&] {
        const StackPointer start = stack_pointer();
        TAVIK_Encode(&context, pcm.data(), &samples, output.data(), &bytes);
        return start;
    });
}

// The most that a call of TAVIK_Encode takes in the stream of an initialised context.
std::ptrdiff_t stack_of_stream(EncoderContext &context, const GoldenStream &golden) {
    constexpr std::size_t samples = 6 * TAVIK_FRAME_LENGTH;
    const unsigned channels = channel_count(golden.config);
    const auto pcm = make_signal(golden.signal, channels, samples, golden.config.sample_rate, 20261122);
    std::ptrdiff_t most = 0;
    for (std::size_t i = 0; i < pcm.size(); i += TAVIK_FRAME_LENGTH * channels) {
        most = std::max(most, stack_of_encode(context, std::span(pcm).subspan(i), TAVIK_FRAME_LENGTH));
    }
    while (context.status != TAVIK_STATUS_END_OF_STREAM) most = std::max(most, stack_of_encode(context, pcm, 0));
    return most;
}

[[gnu::noinline]] void touch_1000_bytes() {
    volatile char bytes[1000];
    for (volatile char &byte : bytes) byte = 0;
}

TEST(Stack, IsMeasured) {
    const std::ptrdiff_t used = stack.bytes_used([] {
        const StackPointer start = stack_pointer();
        touch_1000_bytes();
        return start;
    });
    EXPECT_GE(used, 1000);
    EXPECT_LE(used, 1100);
}

TEST(Stack, EntryPointsKeepToTheLimit) {
    static EncoderContext context;
    std::ptrdiff_t init = 0, encode = 0;
    for (const GoldenStream &golden : golden_streams()) {
        init = std::max(init, stack_of_init(context, golden.config));
        const std::ptrdiff_t stream = stack_of_stream(context, golden);
        EXPECT_LE(stream, limit) << golden.name;
        encode = std::max(encode, stream);
    }
    EXPECT_LE(init, limit);
    std::cout << "bytes of stack: TAVIK_Init " << init << ", TAVIK_Encode " << encode << '\n';
}

}  // namespace
