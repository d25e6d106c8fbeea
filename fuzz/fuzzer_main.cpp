// A fuzz target as a libFuzzer program. Tells at its end how much the library had to do.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "target.h"

namespace {

struct Effort {
    std::uint64_t inputs = 0;
    std::uint64_t units = 0;
    ~Effort() {
        std::fprintf(stderr, "%llu inputs, %llu %s\n", static_cast<unsigned long long>(inputs),
                     static_cast<unsigned long long>(units), tavik_fuzz::unit_name);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Effort effort;
    try {
        effort.units += tavik_fuzz::run_target({data, size}).units;
        ++effort.inputs;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "finding: %s\n", error.what());
        std::abort();
    }
    return 0;
}
