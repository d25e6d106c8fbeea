// Writes exactly what the bit counter counted, after the frame's side information.
#include "bitstream/channel_stream.h"

#include "bitstream/escape_sequence.h"
#include "quant/coded_bands.h"
#include "quant/sections.h"
#include "tables/huffman_tables.h"
#include "tables/packed_lengths.h"

namespace tavik {
namespace {

// The values of some lines and, for the signs of magnitudes, their spectrum.
struct CodedLines {
    const i32 *quantized;
    const i32 *spectrum;
    u32 count;  // a multiple of 4
};

// A codebook as the public tables have it.
struct HuffmanTable {
    const u32 *lengths;
    const u32 *codewords;
};

void write_section_data(BitSink &sink, const CodingBlock &block, ConstCodebooks codebooks, u32 channel) {
    const SectionLengthField field =
        section_length_field(block.window_sequence[channel] != WindowSequence::eight_short);
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        for_each_section(codebooks.subspan(g * max_bands, block.max_sfb[channel]), [&](u32 codebook, u32 bands) {
            sink.put(codebook, section_codebook_bits);
            for (; bands >= field.escape; bands -= field.escape) sink.put(field.escape, field.bits);
            sink.put(bands, field.bits);
        });
    }
}

void write_scale_factor_data(BitSink &sink, const CodingBlock &block, const CodedChannel &coded, u32 channel) {
    u32 previous = coded.band_sf_offset[0];  // the one that global_gain stands for
    for (const Band band : coded_bands(block, channel)) {
        if (coded.codebooks[band.entry()] == tables::zero_codebook) continue;
        const u32 offset = coded.band_sf_offset[band.entry()];
        const u32 index = offset - previous + tables::scale_factor_bias;
        sink.put(TAVIK_ZOLF_huff121[index], TAVIK_ZOLF_huff120[index]);
        previous = offset;
    }
}

// tns_data of a long window: one filter, 4-bit coefficients, upwards.
void write_tns_data(BitSink &sink, const TavikTnsData &tns) {
    sink.put(1, 2);  // n_filt
    sink.put(1, 1);  // coef_res: 4 bits
    sink.put(tns.length, 6);
    sink.put(tns.order, 5);
    if (tns.order == 0) return;
    sink.put(0, 1);  // direction
    sink.put(tns.coef_compress, 1);
    const u32 mask = 15u >> tns.coef_compress;
    for (u32 i = 0; i < tns.order; ++i) sink.put(static_cast<u32>(tns.coef[i]) & mask, 4 - tns.coef_compress);
}

// Tuples of signed values, whose signs are inside the codewords.
template <u32 Size, typename Index>
BitSink write_signed(BitSink sink, const CodedLines &lines, const HuffmanTable &table, Index index) {
    const i32 *const end = lines.quantized + lines.count;
    for (const i32 *q = lines.quantized; q != end; q += Size) {
        const u32 i = index(q);
        sink.put(table.codewords[i], table.lengths[i]);
    }
    return sink;
}

// A codeword followed by one sign bit for each value of the tuple that is not zero.
template <u32 Size>
u32 append_signs(u32 codeword, const i32 *q, const i32 *x) {
    for (u32 k = 0; k < Size; ++k) {
        const u32 with_sign = codeword << 1 | static_cast<u32>(x[k]) >> 31;
        codeword = q[k] != 0 ? with_sign : codeword;
    }
    return codeword;
}

// Tuples of magnitudes; the lengths include the sign bits.
template <u32 Size, typename Index>
BitSink write_magnitudes(BitSink sink, const CodedLines &lines, const HuffmanTable &table, Index index) {
    const i32 *const end = lines.quantized + lines.count;
    for (const i32 *q = lines.quantized, *x = lines.spectrum; q != end; q += Size, x += Size) {
        const u32 i = index(q);
        sink.put(append_signs<Size>(table.codewords[i], q, x), table.lengths[i]);
    }
    return sink;
}

BitSink write_pairs(BitSink sink, const CodedLines &lines, const HuffmanTable &table, u32 radix) {
    return write_magnitudes<2>(sink, lines, table, [radix](const i32 *q) { return tables::pair_index(q, radix); });
}

BitSink write_escape_codebook(BitSink sink, const CodedLines &lines) {
    const i32 *const end = lines.quantized + lines.count;
    for (const i32 *q = lines.quantized, *x = lines.spectrum; q != end; q += 2, x += 2) {
        const u32 i = tables::escape_pair_index(q);
        sink.put(append_signs<2>(TAVIK_ZOLF_huff111[i], q, x), tables::escape_pair_lengths[i]);
        for (const i32 value : {q[0], q[1]}) {
            if (value < tables::escape_flag) continue;
            const EscapeSequence escape = escape_sequence(value);
            sink.put(escape.code, escape.length);
        }
    }
    return sink;
}

BitSink write_lines(BitSink sink, u32 codebook, const CodedLines &lines) {
    using namespace tables;
    switch (codebook) {
        case 1: return write_signed<4>(sink, lines, {TAVIK_ZOLF_huff10, TAVIK_ZOLF_huff11}, signed_quad_index);
        case 2: return write_signed<4>(sink, lines, {TAVIK_ZOLF_huff20, TAVIK_ZOLF_huff21}, signed_quad_index);
        case 3: return write_magnitudes<4>(sink, lines, {TAVIK_ZOLF_huff30, TAVIK_ZOLF_huff31}, quad_index);
        case 4: return write_magnitudes<4>(sink, lines, {TAVIK_ZOLF_huff40, TAVIK_ZOLF_huff41}, quad_index);
        case 5: return write_signed<2>(sink, lines, {TAVIK_ZOLF_huff50, TAVIK_ZOLF_huff51}, signed_pair_index);
        case 6: return write_signed<2>(sink, lines, {TAVIK_ZOLF_huff60, TAVIK_ZOLF_huff61}, signed_pair_index);
        case 7: return write_pairs(sink, lines, {TAVIK_ZOLF_huff70, TAVIK_ZOLF_huff71}, 8);
        case 8: return write_pairs(sink, lines, {TAVIK_ZOLF_huff80, TAVIK_ZOLF_huff81}, 8);
        case 9: return write_pairs(sink, lines, {TAVIK_ZOLF_huff90, TAVIK_ZOLF_huff91}, 13);
        case 10: return write_pairs(sink, lines, {TAVIK_ZOLF_huff100, TAVIK_ZOLF_huff101}, 13);
        case escape_codebook: return write_escape_codebook(sink, lines);
        default: return sink;
    }
}

// Section by section: the bands of a section are neighbours with one codebook.
BitSink write_spectral_data(BitSink sink, const CodingBlock &block, const CodedChannel &coded, u32 channel) {
    u32 group_begin = 0;
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        const u32 *offset = &block.sfb_offset[channel][g * short_offset_row];
        for_each_section(coded.codebooks.subspan(g * max_bands, block.max_sfb[channel]), [&](u32 codebook, u32 bands) {
            const u32 begin = group_begin + offset[0];
            sink = write_lines(sink, codebook,
                               {&coded.quantized[begin], &coded.spectrum[begin], offset[bands] - offset[0]});
            offset += bands;
        });
        group_begin += short_length * block.window_group_length[channel][g];
    }
    return sink;
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
    BitSink sink = open_sink(out);
    write_section_data(sink, block, coded.codebooks, channel);
    write_scale_factor_data(sink, block, coded, channel);
    sink.put(0, 1);  // pulse_data_present
    sink.put(tns.tns_data_present, 1);
    if (tns.tns_data_present == 1) write_tns_data(sink, tns);
    sink.put(0, 1);  // gain_control_data_present
    close_sink(out, write_spectral_data(sink, block, coded, channel));
    return out.writer.bit_count - start;
}

}  // namespace tavik
