// Writes exactly what the bit counter counted, after the frame's side information.
#include "bitstream/channel_stream.h"

#include "bitstream/escape_sequence.h"
#include "quant/coded_bands.h"
#include "quant/sections.h"
#include "tables/huffman_tables.h"

namespace tavik {
namespace {

using ConstValues = std::span<const i32>;

void write_section_data(BitOutput out, const CodingBlock &block, ConstBandArray codebooks, u32 channel) {
    const bool eight_short = block.window_sequence[channel] == WindowSequence::eight_short;
    const SectionLengthField field = eight_short ? short_section_length : long_section_length;
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        for_each_section(codebooks.subspan(g * max_bands, block.max_sfb[channel]), [&](u32 codebook, u32 bands) {
            put_bits(out, codebook, section_codebook_bits);
            for (; bands >= field.escape; bands -= field.escape) put_bits(out, field.escape, field.bits);
            put_bits(out, bands, field.bits);
        });
    }
}

void write_scale_factor_data(BitOutput out, const CodingBlock &block, const CodedChannel &coded, u32 channel) {
    u32 previous = coded.band_sf_offset[0];  // the one that global_gain stands for
    for (const Band band : coded_bands(block, channel)) {
        if (coded.codebooks[band.entry()] == tables::zero_codebook) continue;
        const u32 offset = coded.band_sf_offset[band.entry()];
        const u32 index = offset - previous + tables::scale_factor_bias;
        put_bits(out, TAVIK_ZOLF_huff121[index], TAVIK_ZOLF_huff120[index]);
        previous = offset;
    }
}

// tns_data of a long window: one filter, 4-bit coefficients, upwards.
void write_tns_data(BitOutput out, const TavikTnsData &tns) {
    put_bits(out, 1, 2);  // n_filt
    put_bits(out, 1, 1);  // coef_res: 4 bits
    put_bits(out, tns.length, 6);
    put_bits(out, tns.order, 5);
    if (tns.order == 0) return;
    put_bits(out, 0, 1);  // direction
    put_bits(out, tns.coef_compress, 1);
    const u32 mask = 15u >> tns.coef_compress;
    for (u32 i = 0; i < tns.order; ++i) put_bits(out, static_cast<u32>(tns.coef[i]) & mask, 4 - tns.coef_compress);
}

// Tuples of signed values, whose signs are inside the codewords.
template <std::size_t Size, typename Index>
void write_signed(BitOutput out, ConstValues q, Index index, const u32 *lengths, const u32 *codewords) {
    for (std::size_t k = 0; k < q.size(); k += Size) {
        const u32 i = index(&q[k]);
        put_bits(out, codewords[i], lengths[i]);
    }
}

// A codeword followed by one sign bit for each value of the tuple that is not zero.
u32 append_signs(u32 codeword, ConstValues q, ConstValues spectrum) {
    for (std::size_t k = 0; k < q.size(); ++k) {
        if (q[k] != 0) codeword = codeword << 1 | (spectrum[k] < 0 ? 1 : 0);
    }
    return codeword;
}

// Tuples of magnitudes; the lengths include the sign bits.
template <std::size_t Size, typename Index>
void write_magnitudes(BitOutput out, ConstValues q, ConstValues spectrum, Index index, const u32 *lengths,
                      const u32 *codewords) {
    for (std::size_t k = 0; k < q.size(); k += Size) {
        const u32 i = index(&q[k]);
        put_bits(out, append_signs(codewords[i], q.subspan(k, Size), spectrum.subspan(k, Size)), lengths[i]);
    }
}

void write_escape_codebook(BitOutput out, ConstValues q, ConstValues spectrum) {
    for (std::size_t k = 0; k < q.size(); k += 2) {
        const u32 i = tables::escape_pair_index(&q[k]);
        const u32 signs = (q[k] != 0 ? 1u : 0u) + (q[k + 1] != 0 ? 1u : 0u);
        put_bits(out, append_signs(TAVIK_ZOLF_huff111[i], q.subspan(k, 2), spectrum.subspan(k, 2)),
                 TAVIK_ZOLF_huff110[i] + signs);
        for (const i32 value : {q[k], q[k + 1]}) {
            if (value < tables::escape_flag) continue;
            const EscapeSequence escape = escape_sequence(value);
            put_bits(out, escape.code, escape.length);
        }
    }
}

void write_band(BitOutput out, u32 codebook, ConstValues q, ConstValues spectrum) {
    using namespace tables;
    switch (codebook) {
        case 1: return write_signed<4>(out, q, signed_quad_index, TAVIK_ZOLF_huff10, TAVIK_ZOLF_huff11);
        case 2: return write_signed<4>(out, q, signed_quad_index, TAVIK_ZOLF_huff20, TAVIK_ZOLF_huff21);
        case 3: return write_magnitudes<4>(out, q, spectrum, quad_index, TAVIK_ZOLF_huff30, TAVIK_ZOLF_huff31);
        case 4: return write_magnitudes<4>(out, q, spectrum, quad_index, TAVIK_ZOLF_huff40, TAVIK_ZOLF_huff41);
        case 5: return write_signed<2>(out, q, signed_pair_index, TAVIK_ZOLF_huff50, TAVIK_ZOLF_huff51);
        case 6: return write_signed<2>(out, q, signed_pair_index, TAVIK_ZOLF_huff60, TAVIK_ZOLF_huff61);
        case 7: return write_magnitudes<2>(out, q, spectrum, pair_index<8>, TAVIK_ZOLF_huff70, TAVIK_ZOLF_huff71);
        case 8: return write_magnitudes<2>(out, q, spectrum, pair_index<8>, TAVIK_ZOLF_huff80, TAVIK_ZOLF_huff81);
        case 9: return write_magnitudes<2>(out, q, spectrum, pair_index<13>, TAVIK_ZOLF_huff90, TAVIK_ZOLF_huff91);
        case 10: return write_magnitudes<2>(out, q, spectrum, pair_index<13>, TAVIK_ZOLF_huff100, TAVIK_ZOLF_huff101);
        case escape_codebook: return write_escape_codebook(out, q, spectrum);
        default: return;
    }
}

void write_spectral_data(BitOutput out, const CodingBlock &block, const CodedChannel &coded, u32 channel) {
    for (const Band band : coded_bands(block, channel)) {
        write_band(out, coded.codebooks[band.entry()], coded.quantized.subspan(band.begin, band.width),
                   coded.spectrum.subspan(band.begin, band.width));
    }
}

}  // namespace

u32 tns_data_bits(const TavikTnsData &tns) {
    if (tns.tns_data_present != 1) return 0;
    return tns.order == 0 ? 14 : 16 + tns.order * (4 - tns.coef_compress);
}

u32 write_ics_info(BitOutput out, WindowSequence sequence, u32 max_sfb, u32 scale_factor_grouping) {
    put_bits(out, 0, 1);  // ics_reserved_bit
    put_bits(out, static_cast<u32>(sequence), 2);
    put_bits(out, 0, 1);  // window_shape: sine
    if (sequence == WindowSequence::eight_short) {
        put_bits(out, max_sfb, 4);
        put_bits(out, scale_factor_grouping, 7);
    } else {
        put_bits(out, max_sfb, 6);
        put_bits(out, 0, 1);  // predictor_data_present
    }
    return ics_info_bits(sequence);
}

u32 write_channel_stream(BitOutput out, const CodingBlock &block, const CodedChannel &coded, u32 scale_factor_grouping,
                         u32 channel) {
    const u32 start = out.writer.bit_count;
    const TavikTnsData &tns = block.tns_data[channel];
    put_bits(out, coded.global_gain, global_gain_bits);
    if (block.common_window == 0) {
        write_ics_info(out, block.window_sequence[channel], block.max_sfb[channel], scale_factor_grouping);
    }
    write_section_data(out, block, coded.codebooks, channel);
    write_scale_factor_data(out, block, coded, channel);
    put_bits(out, 0, 1);  // pulse_data_present
    put_bits(out, tns.tns_data_present, 1);
    if (tns.tns_data_present == 1) write_tns_data(out, tns);
    put_bits(out, 0, 1);  // gain_control_data_present
    write_spectral_data(out, block, coded, channel);
    return out.writer.bit_count - start;
}

}  // namespace tavik
