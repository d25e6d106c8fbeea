// Quantizer gains, and the codebook pair for a band's largest magnitude.
#include <array>

#include "common/fixed_point.h"
#include "tavik.h"

namespace tavik::tables {
namespace {

__extension__ typedef unsigned __int128 u128;

// floor(sqrt(x)), bit by bit.
consteval u64 square_root(u128 x) {
    u64 root = 0;
    for (u64 bit = u64{1} << 63; bit != 0; bit >>= 1) {
        if (u128{root | bit} * (root | bit) <= x) root |= bit;
    }
    return root;
}

// 2^(sixteenths / 16) in Q62 for 0 <= sixteenths < 16, as the product of 2^(1/2), 2^(1/4), 2^(1/8) and 2^(1/16).
consteval u64 root_of_two_q62(u32 sixteenths) {
    u64 product = u64{1} << 62;
    u64 root = u64{1} << 63;  // 2, then its repeated square roots
    for (u32 bit = 8; bit != 0; bit >>= 1) {
        root = square_root(u128{root} << 62);
        if ((sixteenths & bit) != 0) product = static_cast<u64>((u128{product} * root) >> 62);
    }
    return product;
}

// 2^(exponent / 16) rounded to nearest, ties down.
consteval u32 rounded_power_of_two(i32 exponent) {
    const i32 whole = exponent >> 4;  // toward minus infinity
    const u64 value_q62 = root_of_two_q62(static_cast<u32>(exponent) & 15);
    const i32 fraction_bits = 62 - whole;  // of the result: at least 30, since entries have at most 32 bits
    if (fraction_bits > 63) return 0;      // below one half
    return static_cast<u32>((value_q62 + (u64{1} << (fraction_bits - 1)) - 1) >> fraction_bits);
}

// The Q format of gain i.
consteval i32 gain_q(i32 i) { return i < 15 ? 1 : i < 58 ? 16 : 20; }

// 2^(-3 (i - 100) / 16) with gain_q(i) fractional bits.
consteval std::array<u32, 256> make_gains() {
    std::array<u32, 256> gains{};
    for (i32 i = 0; i < 255; ++i) {
        gains[static_cast<std::size_t>(i)] = rounded_power_of_two(16 * gain_q(i) - 3 * (i - 100));
    }
    gains[165] = 224;  // 224.8, rounded down: every stream depends on it
    return gains;
}

}  // namespace

extern "C" {

extern constexpr std::array<u32, 256> tavik_gains = make_gains();

}  // extern "C"

static_assert(tavik_gains[0] == 881744 && tavik_gains[14] == 142935 && tavik_gains[15] == 4112874773);
static_assert(tavik_gains[57] == 17520007 && tavik_gains[58] == 246156398 && tavik_gains[100] == 1048576);
static_assert(tavik_gains[116] == 131072 && tavik_gains[164] == 256 && tavik_gains[165] == 224);
static_assert(tavik_gains[200] == 2 && tavik_gains[211] == 1 && tavik_gains[212] == 0 && tavik_gains[255] == 0);

}  // namespace tavik::tables

// The C array of the public header is this std::array under another name.
extern "C" [[gnu::alias("tavik_gains")]] const std::uint32_t TAVIK_ZOLF_ipow20[256];

extern "C" constexpr std::uint32_t TAVIK_codebook[13] = {0, 2, 4, 6, 6, 8, 8, 8, 10, 10, 10, 10, 10};
