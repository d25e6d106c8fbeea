// MDCT of one block: fold, rotate, FFT, rotate. The block is windowed before, or, fast, while it is folded.
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "common/encoder_context.h"
#include "filterbank/vector_product.h"
#include "interface/kernels.h"

namespace tavik {

// buf[k] = 2^-9 sum over p < 2n of buf[p] cos(2 pi / 2n (p + n0)(k + 1/2)), n0 = (n + 1) / 2, k < n: the standard's
// analysis MDCT / 1024, the same gain for both sizes, n = 1024 and 128. In: 2n samples up to about 2^22. Out: n
// coefficients, within some 20 units of the exact sum; the upper half of buf is left as it was. scratch: n entries.
void mdct(std::span<i32> buf, std::span<i32> scratch);

// One half of a window of 2048 samples as it rises, Q23; the falling half is stored the same way, mirrored.
using HalfWindow = std::span<const i32, frame_length>;

struct LongWindow {
    HalfWindow rise;
    HalfWindow fall;
};

// Sample times window value (Q23) times 2^7: x 2^16 w / 2^32. x is a 16-bit value.
constexpr i32 windowed(i32 x, i32 window_q23) { return vector_mulhi(x << 16, window_q23); }

using History = std::span<const i32, history_length>;

namespace portable {

// The MDCT of 2048 samples, 16-bit values, under this window. scratch is work space; nothing overlaps.
void long_mdct(History x, const LongWindow &window, Spectrum spectrum, std::span<i32, frame_length> scratch);

}  // namespace portable

#if defined(__aarch64__)
namespace neon {

void long_mdct(History x, const LongWindow &window, Spectrum spectrum, std::span<i32, frame_length> scratch);

}  // namespace neon

#if defined(TAVIK_CHECK_KERNELS)
namespace checked {

inline void long_mdct(History x, const LongWindow &window, Spectrum spectrum, std::span<i32, frame_length> scratch) {
    std::array<i32, frame_length> expected;
    portable::long_mdct(x, window, expected, scratch);
    neon::long_mdct(x, window, spectrum, scratch);
    require_equal(std::ranges::equal(spectrum, expected));
}

}  // namespace checked
#endif
#endif

}  // namespace tavik
