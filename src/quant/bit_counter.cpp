// The inner step of the rate loop. A band's largest 3/4 power gives its largest quantized value, and with it the pair
// of codebooks, before anything is quantized: an all-zero band is done; any other is quantized and counted under both
// codebooks of its pair in one pass.
#include "quant/bit_counter.h"

#include "quant/band_counter.h"

namespace tavik {
namespace {

// The bits of a band's spectral data, and the codebook that gives them.
struct BandCost {
    u32 codebook;
    u32 bits;
};

// At equal cost the lower codebook is chosen.
BandCost cheaper_of_pair(PairBits bits, u32 higher) {
    const u32 lower_bits = tables::in_lower_codebook(bits);
    const i32 more = tables::more_in_higher_codebook(bits);
    return more >= 0 ? BandCost{higher - 1, lower_bits} : BandCost{higher, lower_bits + static_cast<u32>(more)};
}

// `largest`: the band's largest magnitude, 1 ... 4095. It decides on the pair of codebooks, as in TAVIK_codebook.
BandCost count_band(const BandLines &band, u32 gain, u32 largest) {
    using namespace tables;
    switch (largest) {
        case 1: return cheaper_of_pair(count_signed_quads(band, gain), 2);
        case 2: return cheaper_of_pair(count_quads(band, gain), 4);
        case 3:
        case 4: return cheaper_of_pair(count_signed_pairs(band, gain), 6);
        case 5:
        case 6:
        case 7: return cheaper_of_pair(count_pairs(band, gain, pair_8_lengths.data(), 8), 8);
        case 8:
        case 9:
        case 10:
        case 11:
        case 12: return cheaper_of_pair(count_pairs(band, gain, pair_13_lengths.data(), 13), 10);
        case 13:
        case 14:
        case 15: return {escape_codebook, count_escape_pairs<false>(band, gain)};
        default: return {escape_codebook, count_escape_pairs<true>(band, gain)};
    }
}

// A band whose products exceed 32 bits: a gain index below 58, where no value is small, or a magnitude above 4095.
BandCost count_large_band(const BandLines &band, const GainRule &rule) {
    return {tables::escape_codebook, count_large_escape_pairs(band, rule)};
}

// Adds up the section data of bands that come in coding order.
class SectionCounter {
 public:
    explicit SectionCounter(SectionLengthField length) : length_(length) {}

    // The bits that one more band adds: those of a new section, or of one more field of the section's length.
    u32 add(u32 codebook, bool starts_group) {
        if (starts_group || codebook != codebook_) {
            codebook_ = codebook;
            bands_in_field_ = 1;
            return section_codebook_bits + length_.bits;
        }
        if (++bands_in_field_ < length_.escape) return 0;
        bands_in_field_ = 0;
        return length_.bits;
    }

 private:
    SectionLengthField length_;
    u32 codebook_ = 0;
    u32 bands_in_field_ = 0;
};

}  // namespace

u32 count_bits(const RateBands &bands, const ChannelData &data, Trial trial) {
    SectionCounter sections(trial.section_length);
    // Local copies: a store to the codebooks, which are bytes, may alias what is read through a reference.
    const u32 *const powers = data.pow34.data();
    const i32 *const spectrum = data.spectrum.data();
    i32 *const quantized = data.quantized.data();
    u8 *const codebooks = data.codebooks.data();
    const u32 gain_base = scale_factor_base + trial.common_sf;
    u32 bits = 0;
    u32 index_base = data.band_sf_offset[0] - tables::scale_factor_bias;  // the offset that global_gain stands for
    for (const RateBand band : bands) {
        const u32 gain_index = (gain_base + band.sf_offset) % 256;
        const u32 gain = TAVIK_ZOLF_ipow20[gain_index];
        u64 largest = (u64{band.peak} * gain + q20_rounding) >> 20;
        u32 counted_by_kernels = max_of_32_bit_products;
        if (gain_index < first_q20_gain) {
            largest = gain_rule(gain_index)(band.peak);
            counted_by_kernels = 0;
        }
        BandCost cost{tables::zero_codebook, 0};
        if (largest != 0) {
            const u32 begin = band.begin();
            const BandLines lines{powers + begin, spectrum + begin, quantized + begin, band.width()};
            if (largest <= counted_by_kernels) {
                cost = count_band(lines, gain, static_cast<u32>(largest));
            } else if (largest <= max_quantized) {
                cost = count_large_band(lines, gain_rule(gain_index));
            } else {
                return overflow_bits;
            }
            bits += cost.bits + TAVIK_ZOLF_huff120[band.sf_offset - index_base];
            index_base = band.sf_offset - tables::scale_factor_bias;
        }
        codebooks[band.entry] = static_cast<u8>(cost.codebook);
        bits += sections.add(cost.codebook, band.starts_group != 0);
        if (bits >= trial.bit_limit) return bits;
    }
    return bits;
}

}  // namespace tavik
