// A fuzz target as a libFuzzer program. At the end it prints the numbers of inputs and frames.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "target.h"

namespace {

struct Effort {
    std::uint64_t inputs = 0;
    std::uint64_t frames = 0;
    ~Effort() { std::fprintf(stderr, "%" PRIu64 " inputs, %" PRIu64 " frames\n", inputs, frames); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Effort effort;
    try {
        effort.frames += tavik_fuzz::run_target({data, size}).frames;
        ++effort.inputs;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "finding: %s\n", error.what());
        std::abort();
    }
    return 0;
}
