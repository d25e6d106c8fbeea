// Writes exactly the bits that the bit counter counted, and the channel's side information.
#include "bitstream/channel_stream.h"

#include "bitstream/fields.h"
#include "quant/coded_bands.h"
#include "tables/escape_sequence.h"
#include "tables/huffman_tables.h"
#include "tables/sections.h"

namespace tavik {
namespace {

// A multiple of 4 values and, for the signs of magnitudes, their spectrum. Stored bytes may alias anything, so
// loops keep a local copy of `end`.
struct CodedLines {
    const i32 *quantized;
    const i32 *end;
    const i32 *spectrum;
};

// A codebook, as in the public tables.
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
    u32 previous = coded.band_sf_offset[0];  // that of global_gain
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        const u8 *codebook = &coded.codebooks[g * max_bands];
        const u32 *offset = &coded.band_sf_offset[g * max_bands];
        for (u32 bands = block.max_sfb[channel]; bands != 0; --bands, ++codebook, ++offset) {
            if (*codebook == tables::zero_codebook) continue;
            const u32 index = *offset - previous + tables::scale_factor_bias;
            sink.put(TAVIK_ZOLF_huff121[index], TAVIK_ZOLF_huff120[index]);
            previous = *offset;
        }
    }
}

// tns_data of a long window: one filter, of upward direction, with 4-bit coefficients.
void write_tns_data(BitSink &sink, const TavikTnsData &tns) {
    constexpr u32 n_filt = 1;
    constexpr u32 coef_res = 1;  // 4 bits
    sink.put(((n_filt << 1 | coef_res) << 6 | tns.length) << 5 | tns.order, 14);
    if (tns.order == 0) return;
    sink.put(tns.coef_compress, 2);  // after direction, 0
    const u32 bits = 4 - tns.coef_compress;
    for (u32 i = 0; i < tns.order; ++i) sink.put(static_cast<u32>(tns.coef[i]) & (15u >> tns.coef_compress), bits);
}

// Tuples of signed values: the codewords include the signs.
template <u32 Size, typename Index>
void write_signed(BitSink &sink, const CodedLines &lines, const HuffmanTable &table, Index index) {
    const i32 *const end = lines.end;
    for (const i32 *q = lines.quantized; q != end; q += Size) {
        const u32 i = index(q);
        sink.put(table.codewords[i], table.lengths[i]);
    }
}

// A codeword followed by one sign bit for each value that is not zero.
u32 append_quad_signs(u32 codeword, const i32 *q, const i32 *x) {
#pragma GCC unroll 4
    for (u32 k = 0; k < 4; ++k) {
        const u32 sign_bits = q[k] != 0 ? 1 : 0;
        codeword = codeword << sign_bits | (static_cast<u32>(x[k]) >> 31 & sign_bits);
    }
    return codeword;
}

// Quads of magnitudes; the lengths include the sign bits.
void write_quads(BitSink &sink, const CodedLines &lines, const HuffmanTable &table) {
    const i32 *x = lines.spectrum;
    const i32 *const end = lines.end;
    for (const i32 *q = lines.quantized; q != end; q += 4, x += 4) {
        const u32 i = tables::quad_index(q);
        sink.put(append_quad_signs(table.codewords[i], q, x), table.lengths[i]);
    }
}

u32 append_sign(u32 codeword, i32 x) { return codeword << 1 | static_cast<u32>(x) >> 31; }

struct Pair {
    i32 first;
    i32 second;
};

// Appends a codeword and, from x, the signs of its pair of magnitudes. Zeros have no sign; they are rare in such pairs.
// Inlined, so that the sink stays in registers.
template <bool LengthIncludesSigns>
[[gnu::always_inline]] inline void put_pair(BitSink &sink, u32 codeword, u32 length, Pair magnitudes, const i32 *x) {
    constexpr u32 sign_length = LengthIncludesSigns ? 0 : 1;
    if (magnitudes.first != 0 && magnitudes.second != 0) [[likely]] {
        codeword = append_sign(append_sign(codeword, x[0]), x[1]);
        length += 2 * sign_length;
    } else if (magnitudes.first != 0) {
        codeword = append_sign(codeword, x[0]);
        length += sign_length;
    } else if (magnitudes.second != 0) {
        codeword = append_sign(codeword, x[1]);
        length += sign_length;
    }
    sink.put(codeword, length);
}

// Pairs of magnitudes below the radix; the lengths include the sign bits.
void write_pairs(BitSink &sink, const CodedLines &lines, const HuffmanTable &table, i32 radix) {
    const i32 *x = lines.spectrum;
    const i32 *const end = lines.end;
    for (const i32 *q = lines.quantized; q != end; q += 2, x += 2) {
        const Pair pair{q[0], q[1]};
        const u32 i = tables::pair_index(pair.first, pair.second, radix);
        put_pair<true>(sink, table.codewords[i], table.lengths[i], pair, x);
    }
}

[[gnu::always_inline]] inline void put_escape(BitSink &sink, i32 value) {
    const EscapeSequence escape = escape_sequence(static_cast<u32>(value));
    sink.put(escape.code, escape.length);
}

// Pairs of any magnitudes; the lengths are those of the codewords alone.
void write_escape_pairs(BitSink &sink, const CodedLines &lines) {
    using namespace tables;
    const i32 *x = lines.spectrum;
    const i32 *const end = lines.end;
    for (const i32 *q = lines.quantized; q != end; q += 2, x += 2) {
        const Pair pair{q[0], q[1]};
        const Pair capped{capped_at_escape_flag(pair.first), capped_at_escape_flag(pair.second)};
        const u32 i = pair_index(capped.first, capped.second, escape_radix);
        put_pair<false>(sink, TAVIK_ZOLF_huff111[i], TAVIK_ZOLF_huff110[i], pair, x);
        if (!is_escape_flag(capped.first | capped.second)) continue;
        if (is_escape_flag(capped.first)) put_escape(sink, pair.first);
        if (is_escape_flag(capped.second)) put_escape(sink, pair.second);
    }
}

// Codebooks 1 to 10.
constexpr HuffmanTable huffman_table(u32 codebook) {
    switch (codebook) {
        case 1: return {TAVIK_ZOLF_huff10, TAVIK_ZOLF_huff11};
        case 2: return {TAVIK_ZOLF_huff20, TAVIK_ZOLF_huff21};
        case 3: return {TAVIK_ZOLF_huff30, TAVIK_ZOLF_huff31};
        case 4: return {TAVIK_ZOLF_huff40, TAVIK_ZOLF_huff41};
        case 5: return {TAVIK_ZOLF_huff50, TAVIK_ZOLF_huff51};
        case 6: return {TAVIK_ZOLF_huff60, TAVIK_ZOLF_huff61};
        case 7: return {TAVIK_ZOLF_huff70, TAVIK_ZOLF_huff71};
        case 8: return {TAVIK_ZOLF_huff80, TAVIK_ZOLF_huff81};
        case 9: return {TAVIK_ZOLF_huff90, TAVIK_ZOLF_huff91};
        default: return {TAVIK_ZOLF_huff100, TAVIK_ZOLF_huff101};
    }
}

void write_lines(BitSink &sink, u32 codebook, const CodedLines &lines) {
    if (codebook == tables::zero_codebook) return;
    if (codebook == tables::escape_codebook) return write_escape_pairs(sink, lines);
    const HuffmanTable table = huffman_table(codebook);
    switch (codebook) {
        case 1:
        case 2: return write_signed<4>(sink, lines, table, tables::signed_quad_index);
        case 3:
        case 4: return write_quads(sink, lines, table);
        case 5:
        case 6: return write_signed<2>(sink, lines, table, tables::signed_pair_index);
        default: return write_pairs(sink, lines, table, codebook < 9 ? 8 : 13);
    }
}

// Section by section, since neighbouring bands of one codebook are coded alike.
void write_spectral_data(BitSink &sink, const CodingBlock &block, const CodedChannel &coded, u32 channel) {
    u32 group_begin = 0;
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        const u32 *offset = &block.sfb_offset[channel][g * short_offset_row];
        for_each_section(coded.codebooks.subspan(g * max_bands, block.max_sfb[channel]), [&](u32 codebook, u32 bands) {
            const i32 *quantized = coded.quantized.data() + group_begin;
            write_lines(sink, codebook,
                        {quantized + offset[0], quantized + offset[bands], &coded.spectrum[group_begin + offset[0]]});
            offset += bands;
        });
        group_begin += short_length * block.window_group_length[channel][g];
    }
}

}  // namespace

u32 tns_data_bits(const TavikTnsData &tns) {
    if (tns.tns_data_present != 1) return 0;
    return tns.order == 0 ? 14 : 16 + tns.order * (4 - tns.coef_compress);
}

void write_ics_info(BitOutput out, WindowSequence sequence, u32 max_sfb, u32 scale_factor_grouping) {
    const Field<1> ics_reserved_bit{0};
    const Field<2> window_sequence{static_cast<u32>(sequence)};
    const Field<1> window_shape{0};  // sine
    if (sequence == WindowSequence::eight_short) {
        put_fields(out, ics_reserved_bit, window_sequence, window_shape, Field<4>{max_sfb},
                   Field<7>{scale_factor_grouping});
    } else {
        const Field<1> predictor_data_present{0};
        put_fields(out, ics_reserved_bit, window_sequence, window_shape, Field<6>{max_sfb}, predictor_data_present);
    }
}

void write_channel_stream(BitOutput out, const CodingBlock &block, const CodedChannel &coded, u32 scale_factor_grouping,
                          u32 channel) {
    const TavikTnsData &tns = block.tns_data[channel];
    put_bits(out, coded.global_gain, global_gain_bits);
    if (block.common_window == 0) {
        write_ics_info(out, block.window_sequence[channel], block.max_sfb[channel], scale_factor_grouping);
    }
    BitSink sink = open_sink(out);
    write_section_data(sink, block, coded.codebooks, channel);
    write_scale_factor_data(sink, block, coded, channel);
    sink.put(tns.tns_data_present, 2);  // after pulse_data_present, 0
    if (tns.tns_data_present == 1) write_tns_data(sink, tns);
    sink.put(0, 1);  // gain_control_data_present
    write_spectral_data(sink, block, coded, channel);
    close_sink(out, sink);
}

}  // namespace tavik
