// The inner step of the rate loop: every coded coefficient is quantized, then each band is counted under both codebooks
// of the pair that its largest magnitude calls for, in one pass.
#include "quant/bit_counter.h"

#include <algorithm>

#include "bitstream/escape_sequence.h"
#include "quant/coded_bands.h"
#include "quant/power34.h"
#include "quant/sections.h"
#include "tables/huffman_tables.h"

namespace tavik {
namespace {

using Values = std::span<i32>;
using ConstValues = std::span<const i32>;

// What a band costs, and the codebook that makes it so.
struct BandCost {
    u32 codebook;
    u32 bits;
};

// The higher codebook of the pair that codes magnitudes up to `largest`.
u32 codebook_for(u32 largest) {
    return largest < std::size(TAVIK_codebook) ? TAVIK_codebook[largest] : tables::escape_codebook;
}

// Quantizes one band and returns its largest magnitude, which may be beyond what can be coded.
u64 quantize_band(std::span<const u32> pow34, const GainRule &gain, Values quantized) {
    u64 largest = 0;
    for (std::size_t k = 0; k < pow34.size(); ++k) {
        const u64 q = gain(pow34[k]);
        quantized[k] = static_cast<i32>(q);
        largest = std::max(largest, q);
    }
    return largest;
}

// Quantizes all coded bands and sets their codebooks to the higher one of each pair; false on an overflow.
bool quantize_bands(const CodingBlock &block, u32 common_sf, const ChannelData &data, u32 channel) {
    for (const Band band : CodedBands(block, channel, block.sfb_offset_start[channel])) {
        const u32 gain_index = (scale_factor_base + common_sf + data.band_sf_offset[band.entry()]) % 256;
        const u64 largest = quantize_band(data.pow34.subspan(band.begin, band.width), gain_rule(gain_index),
                                          data.quantized.subspan(band.begin, band.width));
        if (largest > largest_quantized) return false;
        data.codebooks[band.entry()] = codebook_for(static_cast<u32>(largest));
    }
    return true;
}

void apply_signs(Values values, ConstValues spectrum) {
    for (std::size_t k = 0; k < values.size(); ++k) {
        if (spectrum[k] < 0) values[k] = -values[k];
    }
}

// Counts a band in tuples of Size values under the codebooks `higher` - 1 and `higher`; equal costs take the lower one.
template <std::size_t Size, typename Index>
BandCost cheaper_of_pair(ConstValues values, Index index, const u32 *lower_lengths, const u32 *higher_lengths,
                         u32 higher) {
    u32 lower_bits = 0;
    u32 higher_bits = 0;
    for (std::size_t k = 0; k < values.size(); k += Size) {
        const u32 i = index(&values[k]);
        lower_bits += lower_lengths[i];
        higher_bits += higher_lengths[i];
    }
    if (higher_bits >= lower_bits) return {higher - 1, lower_bits};
    return {higher, higher_bits};
}

u32 escape_codebook_bits(ConstValues values) {
    u32 bits = 0;
    for (std::size_t k = 0; k < values.size(); k += 2) {
        bits += TAVIK_ZOLF_huff110[tables::escape_pair_index(&values[k])];
        for (const i32 q : {values[k], values[k + 1]}) {
            if (q != 0) ++bits;  // sign
            if (q >= tables::escape_flag) bits += escape_sequence(q).length;
        }
    }
    return bits;
}

// `higher`: the codebook set by quantize_bands, not 0. Values of codebooks 1, 2, 5 and 6 receive their signs.
BandCost count_band(u32 higher, Values values, ConstValues spectrum) {
    using namespace tables;
    switch (higher) {
        case 2:
            apply_signs(values, spectrum);
            return cheaper_of_pair<4>(values, signed_quad_index, TAVIK_ZOLF_huff10, TAVIK_ZOLF_huff20, 2);
        case 4: return cheaper_of_pair<4>(values, quad_index, TAVIK_ZOLF_huff30, TAVIK_ZOLF_huff40, 4);
        case 6:
            apply_signs(values, spectrum);
            return cheaper_of_pair<2>(values, signed_pair_index, TAVIK_ZOLF_huff50, TAVIK_ZOLF_huff60, 6);
        case 8: return cheaper_of_pair<2>(values, pair_index<8>, TAVIK_ZOLF_huff70, TAVIK_ZOLF_huff80, 8);
        case 10: return cheaper_of_pair<2>(values, pair_index<13>, TAVIK_ZOLF_huff90, TAVIK_ZOLF_huff100, 10);
        default: return {escape_codebook, escape_codebook_bits(values)};
    }
}

// Scale-factor and spectral bits of all coded bands; sets each band's final codebook.
u32 count_bands(const CodingBlock &block, const ChannelData &data, u32 channel) {
    u32 bits = 0;
    u32 previous_offset = data.band_sf_offset[0];  // the one that global_gain stands for
    for (const Band band : CodedBands(block, channel, block.sfb_offset_start[channel])) {
        u32 &codebook = data.codebooks[band.entry()];
        if (codebook == tables::zero_codebook) continue;
        const BandCost cost = count_band(codebook, data.quantized.subspan(band.begin, band.width),
                                         data.spectrum.subspan(band.begin, band.width));
        codebook = cost.codebook;
        const u32 offset = data.band_sf_offset[band.entry()];
        bits += cost.bits + TAVIK_ZOLF_huff120[offset - previous_offset + tables::scale_factor_bias];
        previous_offset = offset;
    }
    return bits;
}

u32 section_bits(const CodingBlock &block, ConstBandArray codebooks, u32 channel) {
    const u32 groups = block.num_window_groups[channel];
    const SectionLengthField field = groups == 1 ? long_section_length : short_section_length;
    u32 bits = 0;
    for (u32 g = 0; g < groups; ++g) {
        for_each_section(codebooks.subspan(g * max_bands, block.max_sfb[channel]), [&](u32, u32 bands) {
            bits += section_codebook_bits + field.bits * (bands / field.escape + 1);
        });
    }
    return bits;
}

}  // namespace

u32 count_bits(const CodingBlock &block, u32 common_sf, const ChannelData &data, u32 channel) {
    if (!quantize_bands(block, common_sf, data, channel)) return overflow_bits;
    const u32 band_bits = count_bands(block, data, channel);
    return band_bits + section_bits(block, data.codebooks, channel);
}

}  // namespace tavik
