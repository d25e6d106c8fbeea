// Codebook choice and bit counts of one channel. At gain index 100 the quantized values are the 3/4 powers themselves.
#include "quant/bit_counter.h"

#include <gtest/gtest.h>

#include <random>

#include "quant/power34.h"
#include "support/full_count.h"
#include "support/standard_tables.h"
#include "tables/escape_sequence.h"
#include "tables/huffman_tables.h"

namespace {

using namespace tavik;
using tavik_test::standard_tables;

// A channel with bands of `width` lines.
struct Channel {
    CodingBlock block{};
    std::array<i32, 1024> spectrum{};
    std::array<u32, 1024> pow34{};
    std::array<u32, band_array_size> offsets{};
    std::array<u8, band_array_size> codebooks{};
    std::array<i32, 1024> quantized{};

    Channel(u32 bands, u32 width, std::array<u32, 3> groups = {1, 0, 0}) {
        block.window_group_length[0] = groups;
        block.max_sfb[0] = bands;
        block.sfb_offset_start[0] = block.sfb_offset[0].data();
        for (u32 g = 0; g < 3 && groups[g] != 0; ++g) {
            ++block.num_window_groups[0];
            for (u32 b = 0; b <= bands; ++b) block.sfb_offset[0][short_offset_row * g + b] = b * width;
        }
    }
    u32 count(u32 common_sf = 0) {
        return tavik_test::full_count(block, common_sf, {spectrum, pow34, offsets, codebooks, quantized}, 0);
    }
};

TEST(CountBits, SectionsOfSilence) {
    EXPECT_EQ(Channel(49, 4).count(), 14u);
    EXPECT_EQ(Channel(30, 4).count(), 9u);
    EXPECT_EQ(Channel(31, 4).count(), 14u);
    EXPECT_EQ(Channel(6, 4, {1, 7, 0}).count(), 2 * 7u);
    EXPECT_EQ(Channel(7, 4, {1, 7, 0}).count(), 2 * 10u);
    EXPECT_EQ(Channel(14, 4, {2, 2, 4}).count(), 3 * 13u);
    Channel silenced(48, 4);
    silenced.pow34.fill(741381);
    EXPECT_EQ(silenced.count(112), 14u) << "gain index 212";
}

TEST(CountBits, OverflowStopsTheCount) {
    Channel channel(2, 4);
    channel.pow34[7] = 8191;
    EXPECT_LT(channel.count(), overflow_bits);
    channel.pow34[7] = 8192;
    EXPECT_EQ(channel.count(), overflow_bits);
    channel.offsets[1] = 1;  // a coarser gain for its band
    EXPECT_LT(channel.count(), overflow_bits);
}

// The finest quantizer steps, which the products of lines and gain make too large for 32 bits.
TEST(CountBits, GainIndicesAreTakenModulo256) {
    for (u32 gain_index = 0; gain_index < first_q20_gain + 2; ++gain_index) {
        Channel channel(1, 4);
        channel.pow34 = {4, 0, 5, 9};
        const u64 largest = gain_rule(gain_index)(9);
        const u32 bits = channel.count(256 + gain_index - scale_factor_base);
        if (largest > max_quantized) {
            ASSERT_EQ(bits, overflow_bits) << gain_index;
            continue;
        }
        u32 expected = 9 + 1 + 3;  // section, scale factor, signs
        for (u32 k = 0; k < 4; ++k) {
            const auto q = static_cast<i32>(gain_rule(gain_index)(channel.pow34[k]));
            ASSERT_EQ(channel.quantized[k], q) << gain_index;
            if (q >= tables::escape_flag) expected += escape_sequence(static_cast<u32>(q)).length;
        }
        const i32 *q = channel.quantized.data();
        for (u32 k = 0; k < 4; k += 2) expected += TAVIK_ZOLF_huff110[tables::escape_pair_index(q[k], q[k + 1])];
        ASSERT_EQ(bits, expected) << gain_index;
        ASSERT_EQ(channel.codebooks[0], tables::escape_codebook) << gain_index;
    }
}

// Cost of values under a codebook other than 11, from the standard's tables.
u32 cost(u32 codebook, const i32 *q, u32 width) {
    const auto book = tavik_test::spectral_codebook(codebook);
    u32 bits = 0;
    for (u32 k = 0; k < width; k += book.dimension) {
        u32 index = 0;
        for (u32 d = 0; d < book.dimension; ++d) {
            const i32 value = book.lowest == 0 ? std::abs(q[k + d]) : q[k + d];
            index = index * book.modulus + static_cast<u32>(value - book.lowest);
            if (book.lowest == 0 && value != 0) ++bits;
        }
        bits += standard_tables().code(codebook).codewords()[index].length;
    }
    return bits;
}

TEST(CountBits, CheaperCodebookOfThePairWins) {
    constexpr u32 width = 16;
    std::mt19937 generator(10);
    const auto random = [&](u32 below) { return static_cast<u32>(generator() % below); };
    for (const auto &[largest, lower] : {std::pair<u32, u32>{1, 1}, {2, 3}, {4, 5}, {7, 7}, {12, 9}}) {
        std::array<int, 12> chosen{};
        for (int trial = 0; trial < 400; ++trial) {
            Channel channel(1, width);
            std::array<i32, width> q{};
            const u32 sparsity = 1 + random(10);
            for (u32 k = 0; k < width; ++k) {
                channel.pow34[k] = random(sparsity) == 0 ? random(largest + 1) : 0;
                if (k == 0) channel.pow34[k] = largest;
                channel.spectrum[k] = random(2) == 0 ? -1 : 1;
                q[k] = static_cast<i32>(channel.pow34[k]) * channel.spectrum[k];
            }
            const u32 bits = channel.count() - 9 - 1;  // without section and scale factor
            const u32 lower_cost = cost(lower, q.data(), width);
            const u32 higher_cost = cost(lower + 1, q.data(), width);
            EXPECT_EQ(bits, std::min(lower_cost, higher_cost));
            EXPECT_EQ(channel.codebooks[0], higher_cost >= lower_cost ? lower : lower + 1);
            ++chosen[channel.codebooks[0]];
            for (u32 k = 0; k < width; ++k) {
                const bool with_sign = lower == 1 || lower == 5;
                ASSERT_EQ(channel.quantized[k], with_sign ? q[k] : std::abs(q[k]));
            }
        }
        EXPECT_GT(chosen[lower], 0) << "codebook " << lower;
        EXPECT_GT(chosen[lower + 1], 0) << "codebook " << lower + 1;
    }
}

}  // namespace
