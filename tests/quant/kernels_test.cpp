// The kernels of quantization: 3/4 powers and band counters, each twin against plain formulations of the same.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "quant/band_counter.h"

namespace {

using namespace tavik;

// What the twins of a kernel have in common.
struct Twin {
    const char *name;
    void (*raise)(std::span<const i32>, u32 *);
    u32 (*largest)(std::span<const u32>);
    PairBits (*signed_quads)(const BandLines &, u32);
    PairBits (*quads)(const BandLines &, u32);
    PairBits (*signed_pairs)(const BandLines &, u32);
    PairBits (*pairs)(const BandLines &, u32, const tables::PackedLength *, u32);
    u32 (*escape_pairs)(const BandLines &, u32);
};

constexpr Twin twins[] = {
    {"portable", portable::raise_to_three_quarters, portable::largest, portable::count_signed_quads,
     portable::count_quads, portable::count_signed_pairs, portable::count_pairs, portable::count_escape_pairs},
#if defined(__aarch64__)
    {"neon", neon::raise_to_three_quarters, neon::largest, neon::count_signed_quads, neon::count_quads,
     neon::count_signed_pairs, neon::count_pairs, neon::count_escape_pairs},
#endif
};

class Kernels : public testing::TestWithParam<Twin> {
 protected:
    std::mt19937 random_{4};

    u32 below(u32 limit) { return static_cast<u32>(random_() % limit); }

    // Any bit length is equally likely.
    i32 any_line() { return static_cast<i32>(static_cast<u32>(random_()) >> below(32)) * (below(2) == 0 ? 1 : -1); }
};

TEST_P(Kernels, ThreeQuarterPowersOfAnyLines) {
    std::vector<i32> spectrum(4096);
    for (i32 &x : spectrum) x = any_line();
    constexpr i32 edges[] = {0,    1,    -1,      1023,    -1024,    1024,    4095,
                             4096, 8192, 1 << 22, 8388607, -8388608, 8388609, std::numeric_limits<i32>::min()};
    std::copy(std::begin(edges), std::end(edges), spectrum.begin() + 2);
    std::vector<u32> powers(spectrum.size() + 1, 77);
    GetParam().raise(spectrum, powers.data());
    for (std::size_t k = 0; k < spectrum.size(); ++k)
        ASSERT_EQ(powers[k], pow34(magnitude(spectrum[k]))) << spectrum[k];
    EXPECT_EQ(powers.back(), 77u);
    for (std::size_t count = 0; count <= 32; count += 4) {
        const auto values = std::span<const u32>(powers).subspan(100, count);
        EXPECT_EQ(GetParam().largest(values), count == 0 ? 0 : *std::ranges::max_element(values));
    }
}

// A band whose values stay within `largest` at its gain.
struct RandomBand {
    u32 gain_index;
    std::vector<u32> pow34;
    std::vector<i32> spectrum;
    std::vector<i32> quantized;

    BandLines lines() { return {pow34.data(), spectrum.data(), quantized.data(), static_cast<u32>(pow34.size())}; }
};

RandomBand random_band(std::mt19937 &random, u32 largest) {
    const auto below = [&](u32 limit) { return static_cast<u32>(random() % limit); };
    RandomBand band{first_q20_gain + below(first_silencing_gain - first_q20_gain), {}, {}, {}};
    const GainRule rule = gain_rule(band.gain_index);
    u32 limit = 741381;  // on the 3/4 powers
    while (rule(limit) > largest) limit = below(limit);
    for (u32 k = 4 * (1 + below(30)); k > 0; --k) {
        band.pow34.push_back(below(limit + 1));
        band.spectrum.push_back(static_cast<i32>(random()));
        band.quantized.push_back(99);
    }
    return band;
}

// Bits of a band under one codebook or both of a pair.
struct Bits {
    u32 lower;
    u32 higher;

    bool operator==(const Bits &) const = default;
};

Bits unpacked(PairBits bits) {
    const u32 lower = tables::in_lower_codebook(bits);
    return {lower, lower + static_cast<u32>(tables::more_in_higher_codebook(bits))};
}

// Bits of tuples of `size` values, from the public tables.
template <typename Index>
Bits plain_bits(const std::vector<i32> &q, u32 size, Index index, const u32 *lower, const u32 *higher) {
    Bits bits{};
    for (u32 k = 0; k < q.size(); k += size) {
        bits.lower += lower[index(&q[k])];
        bits.higher += higher[index(&q[k])];
    }
    return bits;
}

TEST_P(Kernels, BandsAreQuantizedAndCounted) {
    using namespace tables;
    const Twin &twin = GetParam();
    for (u32 trial = 0; trial < 3000; ++trial) {
        constexpr u32 classes[] = {1, 2, 4, 7, 12, largest_of_32_bit_products};
        const u32 largest = classes[trial % 6];
        const bool with_signs = largest == 1 || largest == 4;
        RandomBand band = random_band(random_, largest);
        const u32 gain = TAVIK_ZOLF_ipow20[band.gain_index];
        std::vector<i32> q;
        for (std::size_t k = 0; k < band.pow34.size(); ++k) {
            const auto value = static_cast<i32>(gain_rule(band.gain_index)(band.pow34[k]));
            q.push_back(with_signs && band.spectrum[k] < 0 ? -value : value);
        }
        Bits bits{};
        Bits expected{};
        const auto radix_8 = [](const i32 *v) { return pair_index(v[0], v[1], 8); };
        const auto radix_13 = [](const i32 *v) { return pair_index(v[0], v[1], 13); };
        switch (largest) {
            case 1:
                bits = unpacked(twin.signed_quads(band.lines(), gain));
                expected = plain_bits(q, 4, signed_quad_index, TAVIK_ZOLF_huff10, TAVIK_ZOLF_huff20);
                break;
            case 2:
                bits = unpacked(twin.quads(band.lines(), gain));
                expected = plain_bits(q, 4, quad_index, TAVIK_ZOLF_huff30, TAVIK_ZOLF_huff40);
                break;
            case 4:
                bits = unpacked(twin.signed_pairs(band.lines(), gain));
                expected = plain_bits(q, 2, signed_pair_index, TAVIK_ZOLF_huff50, TAVIK_ZOLF_huff60);
                break;
            case 7:
                bits = unpacked(twin.pairs(band.lines(), gain, pair_8_lengths.data(), 8));
                expected = plain_bits(q, 2, radix_8, TAVIK_ZOLF_huff70, TAVIK_ZOLF_huff80);
                break;
            case 12:
                bits = unpacked(twin.pairs(band.lines(), gain, pair_13_lengths.data(), 13));
                expected = plain_bits(q, 2, radix_13, TAVIK_ZOLF_huff90, TAVIK_ZOLF_huff100);
                break;
            default:
                bits.lower = twin.escape_pairs(band.lines(), gain);
                for (std::size_t k = 0; k < q.size(); k += 2) {
                    expected.lower += TAVIK_ZOLF_huff110[escape_pair_index(q[k], q[k + 1])];
                }
                for (const i32 value : q) {
                    if (value != 0) ++expected.lower;  // sign
                    if (value >= escape_flag) expected.lower += escape_sequence(static_cast<u32>(value)).length;
                }
        }
        ASSERT_TRUE(bits == expected) << "largest " << largest << ", gain index " << band.gain_index;
        ASSERT_EQ(band.quantized, q) << "largest " << largest << ", gain index " << band.gain_index;
    }
}

INSTANTIATE_TEST_SUITE_P(Twins, Kernels, testing::ValuesIn(twins),
                         [](const auto &instance) { return std::string(instance.param.name); });

}  // namespace
