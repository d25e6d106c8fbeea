// The 3/4-power tables, computed by exact integer comparison; in a source file so that they are computed only once.
#include "tables/pow34_table.h"

#include <algorithm>

namespace tavik::tables {
namespace {

__extension__ typedef unsigned __int128 u128;

// The largest m strictly below n^(3/4) 2^q, that is with m^4 < n^3 2^(4 q) < 2^92; 0 for n = 0.
consteval u32 largest_below_pow34(u32 n, u32 q) {
    const u128 bound = (u128{n} * n * n) << (4 * q);
    u32 m = 0;
    for (u32 bit = 1u << 22; bit != 0; bit >>= 1) {
        const u128 square = u128{m | bit} * (m | bit);
        if (square * square < bound) m |= bit;
    }
    return m;
}

consteval std::array<u16, small_pow34_entries> make_small_pow34() {
    std::array<u16, small_pow34_entries> powers{};
    u32 a = 0;
    for (; a < 1u << 12; ++a) powers[a] = static_cast<u16>(largest_below_pow34(8 * a, 0));
    for (; a < small_pow34_entries; ++a) {  // one doubling
        powers[a] = static_cast<u16>(largest_below_pow34(4 * a, 11) * pow34_scale[1] >> 15);
    }
    return powers;
}

consteval std::array<u32, pow34_entries> make_pow34_q11() {
    constexpr u32 q = 11;
    std::array<u32, pow34_entries> powers{};
    for (u32 a = 0; a < pow34_own_entries; ++a) powers[a] = largest_below_pow34(8 * a, 0) << q;
    for (u32 i = pow34_own_entries; i < pow34_entries; ++i) {
        powers[i] = largest_below_pow34(pow34_table_begin + i - pow34_own_entries, q);
    }
    return powers;
}

}  // namespace

constexpr std::array<u16, small_pow34_entries> small_pow34 = make_small_pow34();
constexpr std::array<u32, pow34_entries> pow34_q11 = make_pow34_q11();

static_assert(std::ranges::is_sorted(small_pow34));  // so that the largest magnitude of a band has the largest power
static_assert(small_pow34[0] == 0 && small_pow34[1] == 4 && small_pow34[2] == 7 && small_pow34[2047] == 1447);
static_assert(pow34_q11[2048] == 0x2D413C && pow34_q11[2048 + 26008 - 16384] == 0x400002);

}  // namespace tavik::tables
