// Band limits, bit-rate threshold and coefficient quantization of temporal noise shaping.
#include "tables/tns_tables.h"

#include "tables/trigonometry.h"
#include "tavik.h"

namespace tavik::tables {
namespace {

// The standard dequantizes a 4-bit coefficient index i to sin(i / iqfac), iqfac = (8 -+ 1/2) / (pi / 2), that is to
// sin(i pi / 15) for i >= 0 and to -sin(|i| pi / 17) below. The index of a reflection coefficient of magnitude a / 1024
// is the nearest angle: floor(asin(a / 1024) steps / pi + 1/2), which is the number of i >= 1 with
// sin((i - 1/2) pi / steps) <= a / 1024. The sines are rounded to 40 bits, since sin(pi / 6) must equal 1/2.
consteval std::array<i32, 1025> nearest_index(i32 steps, i32 sign) {
    constexpr int q = 40;
    std::array<i32, 1025> index{};
    i32 i = 0;
    for (std::size_t a = 0; a < index.size(); ++a) {
        while (2 * i + 1 <= steps && round_q60(sin_pi(2 * i + 1, 2 * steps), q) <= static_cast<i64>(a) << (q - 10)) ++i;
        index[a] = sign * i;
    }
    return index;
}

// sign sin(i pi / steps), Q23.
template <std::size_t N>
constexpr std::array<i32, N> dequantized(i32 steps, i32 sign) {
    std::array<i32, N> sines{};
    for (std::size_t i = 0; i < N; ++i) {
        sines[i] = sign * static_cast<i32>(round_q60(sin_pi(static_cast<i64>(i), steps), 23));
    }
    return sines;
}

}  // namespace

constexpr std::array<u32, 12> tns_start_band = {19, 20, 23, 24, 25, 27, 22, 23, 20, 24, 25, 26};
constexpr std::array<u32, 12> tns_max_band = {31, 31, 34, 40, 42, 51, 46, 46, 42, 42, 42, 39};
constexpr std::array<u32, 12> tns_min_bitrate = {70000, 70000, 70000, 70000, 64000, 64000,
                                                 48000, 44100, 51200, 38400, 35280, 25600};

extern "C" {

extern constexpr std::array<i32, 1025> tavik_tns_index_positive = nearest_index(15, 1);
extern constexpr std::array<i32, 1025> tavik_tns_index_negative = nearest_index(17, -1);
extern constexpr std::array<i32, 15> tavik_tns_sine_positive = dequantized<15>(15, 1);
extern constexpr std::array<i32, 17> tavik_tns_sine_negative = dequantized<17>(17, -1);

}  // extern "C"

// `first` is the smallest magnitude whose index is `value`.
consteval bool steps_at(const std::array<i32, 1025> &index, std::size_t first, i32 value) {
    return index[first] == value && index[first - 1] != value;
}
static_assert(steps_at(tavik_tns_index_positive, 108, 1) && steps_at(tavik_tns_index_positive, 317, 2) &&
              steps_at(tavik_tns_index_positive, 512, 3) && steps_at(tavik_tns_index_positive, 686, 4) &&
              steps_at(tavik_tns_index_positive, 829, 5) && steps_at(tavik_tns_index_positive, 936, 6) &&
              steps_at(tavik_tns_index_positive, 1002, 7) && steps_at(tavik_tns_index_positive, 1024, 8));
static_assert(steps_at(tavik_tns_index_negative, 95, -1) && steps_at(tavik_tns_index_negative, 281, -2) &&
              steps_at(tavik_tns_index_negative, 457, -3) && steps_at(tavik_tns_index_negative, 618, -4) &&
              steps_at(tavik_tns_index_negative, 757, -5) && steps_at(tavik_tns_index_negative, 871, -6) &&
              steps_at(tavik_tns_index_negative, 955, -7) && steps_at(tavik_tns_index_negative, 1007, -8) &&
              steps_at(tavik_tns_index_negative, 1024, -9));

}  // namespace tavik::tables

// The C arrays of the public header are these std::arrays under another name.
extern "C" [[gnu::alias("tavik_tns_index_positive")]] const std::int32_t TAVIK_asinf_index_p[1025];
extern "C" [[gnu::alias("tavik_tns_index_negative")]] const std::int32_t TAVIK_asinf_index_m[1025];
extern "C" [[gnu::alias("tavik_tns_sine_positive")]] const std::int32_t TAVIK_sin_table_p[15];
extern "C" [[gnu::alias("tavik_tns_sine_negative")]] const std::int32_t TAVIK_sin_table_m[17];
