// The 3/4-power table, computed by exact integer comparison. The largest table of the library, in a file of its own so
// that it is computed once.
#include "tables/pow34_table.h"

namespace tavik::tables {
namespace {

__extension__ typedef unsigned __int128 u128;

// The mantissa is the largest m strictly below n^(3/4) 2^(23 - e), that is with m^4 < n^3 2^(4 (23 - e)) < 2^92.
consteval u32 mantissa_below(u32 n, u32 exponent) {
    const u128 bound = (u128{n} * n * n) << (4 * (23 - exponent));
    u32 m = 0;
    for (u32 bit = 1u << 22; bit != 0; bit >>= 1) {
        const u128 square = u128{m | bit} * (m | bit);
        if (square * square < bound) m |= bit;
    }
    return m;
}

consteval std::array<u32, pow34_entries> make_pow34_table() {
    constexpr u32 fixed_exponent = 12;
    std::array<u32, pow34_entries> table{};
    table[1] = 1u << 22 << 8 | 1;  // exact: the only entry that is not strictly below its value
    u32 exponent = 1;              // floor(log2(n^(3/4))) + 1: the smallest e with n^3 < 2^(4 e)
    for (u32 n = 2; n < pow34_entries; ++n) {
        while (exponent < fixed_exponent && u64{n} * n * n >= u64{1} << (4 * exponent)) ++exponent;
        if (n == pow34_entries / 2) exponent = fixed_exponent;
        table[n] = mantissa_below(n, exponent) << 8 | exponent;
    }
    return table;
}

}  // namespace

constexpr std::array<u32, pow34_entries> pow34_table = make_pow34_table();

consteval std::array<u16, small_pow34_entries> make_small_pow34() {
    std::array<u16, small_pow34_entries> powers{};
    for (u32 a = 0; a < small_pow34_entries; ++a) {
        const u32 entry = pow34_table[8 * a];
        powers[a] = static_cast<u16>((entry >> 8) >> (23 - (entry & 255)));
    }
    return powers;
}

constexpr std::array<u16, small_pow34_entries> small_pow34 = make_small_pow34();

static_assert(pow34_table[0] == 0 && pow34_table[1] == 0x40000001 && pow34_table[2] == 0x6BA27E01);
static_assert(pow34_table[4] == 0x5A827902 && pow34_table[16] == 0x3FFFFF04 && pow34_table[16383] == 0x5A816A0B);
static_assert(pow34_table[16384] == 0x2D413C0C && pow34_table[26008] == 0x4000020C);

}  // namespace tavik::tables
