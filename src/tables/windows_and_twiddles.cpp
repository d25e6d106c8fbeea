// Sine windows and MDCT twiddle factors of the filter bank, computed from their formulas.
#include <array>
#include <cstddef>

#include "tables/trigonometry.h"
#include "tavik.h"

namespace tavik::tables {
namespace {

// sin(pi (p + 1/2) / 2N), p < N: the rising half of a sine window of 2N samples, Q23.
template <std::size_t N>
constexpr std::array<i32, N> sine_window() {
    std::array<i32, N> window{};
    for (std::size_t p = 0; p < N; ++p) {
        window[p] = static_cast<i32>(round_q60(sin_pi(2 * static_cast<i64>(p) + 1, 4 * N), 23));
    }
    return window;
}

// Pairs cos a, -sin a with a = 2 pi (k + 1/8) / N, k < N / 4, in Q27 with 24 significant bits.
template <std::size_t N>
constexpr std::array<i32, N / 2> mdct_twiddles() {
    std::array<i32, N / 2> pairs{};
    for (std::size_t k = 0; k < N / 4; ++k) {
        const i64 eighths = 8 * static_cast<i64>(k) + 1;
        pairs[2 * k] = static_cast<i32>(round_q60(cos_pi(eighths, 4 * N), 23) * 16);
        pairs[2 * k + 1] = static_cast<i32>(-round_q60(sin_pi(eighths, 4 * N), 23) * 16);
    }
    return pairs;
}

}  // namespace

extern "C" {

extern constexpr std::array<i32, 1024> tavik_long_window = sine_window<1024>();
extern constexpr std::array<i32, 128> tavik_short_window = sine_window<128>();
extern constexpr std::array<i32, 1024> tavik_long_twiddles = mdct_twiddles<2048>();
extern constexpr std::array<i32, 128> tavik_short_twiddles = mdct_twiddles<256>();

}  // extern "C"

static_assert(tavik_long_window[0] == 6434 && tavik_long_window[1] == 19302 && tavik_long_window[2] == 32170);
static_assert(tavik_long_window.back() == 8388606);
static_assert(tavik_short_window[0] == 51472 && tavik_short_window[1] == 154407);
static_assert(tavik_short_window.back() == 8388450);
static_assert(tavik_long_twiddles[0] == 134217712 && tavik_long_twiddles[1] == -51472);
static_assert(tavik_short_twiddles[0] == 134217104 && tavik_short_twiddles[1] == -411776);

}  // namespace tavik::tables

// The C arrays of the public header are these std::arrays under another name.
extern "C" [[gnu::alias("tavik_long_window")]] const std::int32_t TAVIK_SLW[1024];
extern "C" [[gnu::alias("tavik_short_window")]] const std::int32_t TAVIK_SSW[128];
extern "C" [[gnu::alias("tavik_long_twiddles")]] const std::int32_t TAVIK_W2[1024];
extern "C" [[gnu::alias("tavik_short_twiddles")]] const std::int32_t TAVIK_W4[128];
