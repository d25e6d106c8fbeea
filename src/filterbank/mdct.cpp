#include "filterbank/mdct.h"

#include <algorithm>

namespace tavik {
namespace {

// The 64 complex values of a short block have room for four lanes.
constexpr u32 short_lanes = std::min(native_lanes, 4u);

// Samples that are windowed already.
struct Unchanged {
    template <u32 N>
    I32<N> operator()(I32<N> x, I32<N> /*window_q23*/) const {
        return x;
    }
};

}  // namespace

void long_mdct(const i32 *x, const Window &window, i32 *spectrum, i32 *scratch) {
    windowed_mdct<native_lanes>(x, window, spectrum, scratch, frame_length);
}

void short_mdct(const i32 *x, const Window &window, i32 *spectrum, i32 *scratch) {
    windowed_mdct<short_lanes>(x, window, spectrum, scratch, short_length);
}

void mdct(std::span<i32> buf, std::span<i32> scratch) {
    const auto n = static_cast<u32>(scratch.size());
    const ComplexBlocks<short_lanes> z{scratch.data()};
    window_and_fold(buf.data(), {TAVIK_SLW, TAVIK_SLW}, z, n, Unchanged());
    fft(z, ComplexBlocks<short_lanes>{buf.data()}, n / 2);
    rotate_to_coefficients<short_lanes>(buf.data(), n);
}

}  // namespace tavik
