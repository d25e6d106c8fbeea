#include "filterbank/mdct.h"

#include <algorithm>

namespace tavik {
namespace {

// The same lanes for both sizes: the short one has room for four.
constexpr u32 lanes = std::min(native_lanes, 4u);

// Samples that are windowed already.
struct Unchanged {
    I32<lanes> operator()(I32<lanes> x, I32<lanes>) const { return x; }
};

}  // namespace

void mdct(std::span<i32> buf, std::span<i32> scratch) {
    const auto n = static_cast<u32>(scratch.size());
    const ComplexBlocks<lanes> z{scratch.data()};
    window_and_fold(buf.data(), {TAVIK_SLW, TAVIK_SLW}, z, n, Unchanged());
    fft(z, ComplexBlocks<lanes>{buf.data()}, n / 2);
    rotate_to_coefficients<lanes>(buf.data(), n);
}

}  // namespace tavik
