// raw_data_block: one SCE (mono), one CPE (stereo) or, for two independent channels, a PCE in ADTS frames and two SCEs;
// then fill elements at constant rate, and END.
#include "bitstream/frame.h"

#include <algorithm>

#include "bitstream/channel_stream.h"
#include "bitstream/fields.h"
#include "bitstream/headers.h"
#include "quant/rate_loop.h"

namespace tavik {
namespace {

// id_syn_ele.
enum class Element : u32 { sce = 0, cpe = 1, pce = 5, fil = 6, end = 7 };

constexpr u32 element_id_bits = 3;
constexpr u32 element_tag_bits = 4;

// What every channel sends besides section, scale-factor, spectral and TNS data and ics_info.
constexpr u32 fixed_channel_bits = global_gain_bits + ics_flag_bits;

// The second channel of a pair is left at least this much, at the cost of the first.
constexpr i32 min_second_target = 148;

constexpr u32 min_fill_element_bits = element_id_bits + 4;
constexpr u32 max_fill_bytes = 270;

constexpr Field<element_id_bits> element_id(Element element) { return {static_cast<u32>(element)}; }

// The header, where this frame has one, with its byte alignment.
void write_header(BitOutput out, EncoderState &state) {
    CodingBlock &block = state.coding;
    if (state.config.header_type == HeaderType::adts) {
        write_adts_header(out, block.adts_header, block.sampling_rate_index, state.config.channel_configuration,
                          state.config.constant_rate == 1);
    } else if (state.config.header_type == HeaderType::adif && block.first_frame_pending == 1) {
        write_adif_header(out, block.adif_header, block.program_config);
        byte_align(out);
    }
    block.first_frame_pending = 0;
}

// fill_element with `bytes` <= 270 bytes of payload, all zero: extension type 0, fill bytes 0.
void write_fill_element(BitOutput out, u32 bytes) {
    constexpr u32 escape_count = 15;
    if (bytes < escape_count) {
        put_fields(out, element_id(Element::fil), Field<4>{bytes});  // count
    } else {
        // count and esc_count: the payload has count + esc_count - 1 bytes ...
        put_fields(out, element_id(Element::fil), Field<4>{escape_count}, Field<8>{bytes - escape_count});
        --bytes;  // ... because esc_count takes one
    }
    put_bits(out, 0, 8 * bytes);
}

// common_window and, if it is 1, ics_info and the mid/side flags. Returns their bits, element tag included.
u32 write_pair_side_information(BitOutput out, const CodingBlock &block) {
    const u32 start = out.writer.bit_count;
    put_fields(out, Field<element_tag_bits>{0}, Field<1>{block.common_window == 1 ? 1u : 0u});
    if (block.common_window == 1) {
        write_ics_info(out, block.window_sequence[0], block.max_sfb[0], block.scale_factor_grouping[0]);
        put_bits(out, static_cast<u32>(block.ms_mask_present), 2);
        if (block.ms_mask_present == MsMask::per_band) {
            for (u32 b = 0; b < block.max_sfb[0]; ++b) put_bits(out, block.ms_used[b], 1);
        }
    }
    return out.writer.bit_count - start;
}

// Deducts `bits` from a channel's target, and what its channel stream sends besides: TNS data and, unless the pair
// shares it, ics_info.
void deduct_side_information(CodingBlock &block, u32 channel, u32 bits, bool shares_ics_info) {
    bits += tns_data_bits(block.tns_data[channel]);
    if (!shares_ics_info) bits += ics_info_bits(block.window_sequence[channel]);
    block.bits_target[channel] = wrap_sub(block.bits_target[channel], static_cast<i32>(bits));
}

// Each channel of a pair bears half of the side information; channel 0 bears an odd bit.
void deduct_pair_side_information(CodingBlock &block, u32 overhead_bits, u32 side_bits) {
    const bool shares_ics_info = block.common_window != 0;
    deduct_side_information(block, 0, overhead_bits + (side_bits + 1) / 2, shares_ics_info);
    deduct_side_information(block, 1, overhead_bits + side_bits / 2, shares_ics_info);
    if (block.bits_target[1] < min_second_target) {
        const i32 missing = wrap_sub(min_second_target, block.bits_target[1]);
        block.bits_target[0] = wrap_sub(block.bits_target[0], missing);
        block.bits_target[1] = min_second_target;
    }
}

// Fits a channel into its target and writes its channel stream. `codebooks` is cleared, or holds the other channel's.
void quantize_and_write_channel(BitOutput out, CodingBlock &block, const FrameData &data, Codebooks codebooks,
                                u32 channel) {
    const ConstSpectrum spectrum(data.spectrum + channel * history_length, frame_length);
    const ConstPow34 pow34(data.pow34 + channel * frame_length, frame_length);
    const ConstBandArray band_sf_offset = block.band_sf_offset[channel];
    const i32 *band_peaks = data.band_peaks != nullptr ? data.band_peaks + channel * max_bands : nullptr;
    const u32 global_gain =
        run_rate_loop(block, {spectrum, pow34, band_sf_offset, codebooks, data.quantized, band_peaks}, channel);
    const CodedChannel coded{global_gain, codebooks, band_sf_offset, data.quantized, spectrum};
    write_channel_stream(out, block, coded, block.scale_factor_grouping[channel], channel);
}

// A channel's overhead: its part of the bits that neither the rate loop counts nor an element deducts itself, which are
// header, element identifiers, single channel tags, END, and the fixed part of each channel stream. Each channel of a
// pair bears half of the header and of the identifiers of CPE and END.
void quantize_and_write_channel_pair(BitOutput out, CodingBlock &block, const FrameData &data) {
    const u32 overhead_bits = out.writer.bit_count / 2 + fixed_channel_bits + (element_id_bits + element_id_bits) / 2;
    put_fields(out, element_id(Element::cpe));
    quantize_and_write_cpe(out, block, data, overhead_bits);
}

// One single channel element, or two, described by a program config element in every ADTS frame.
void quantize_and_write_single_channels(BitOutput out, EncoderState &state, const FrameData &data) {
    CodingBlock &block = state.coding;
    const bool are_two = state.config.channel_configuration == channel_configuration_two_mono;
    if (are_two && state.config.header_type == HeaderType::adts) {
        put_fields(out, element_id(Element::pce));
        write_program_config(out, block.program_config);
    }
    // The first channel also bears the END identifier.
    u32 overhead_bits = out.writer.bit_count / (are_two ? 2 : 1) + element_id_bits + element_tag_bits +
                        fixed_channel_bits + element_id_bits;
    for (u32 channel = 0; channel < block.num_channels; ++channel) {
        put_fields(out, element_id(Element::sce));
        quantize_and_write_sce(out, block, data, overhead_bits, channel);
        overhead_bits -= element_id_bits;
    }
}

}  // namespace

void write_fill(BitOutput out, u32 bits_so_far, u32 target_bits) {
    constexpr u32 max_fill_element_bits = min_fill_element_bits + 8 * max_fill_bytes;
    constexpr u32 max_full_elements = 5;
    const u32 used = bits_so_far + element_id_bits;  // with END
    if (used + min_fill_element_bits > target_bits) return;

    u32 gap = target_bits - used - min_fill_element_bits;
    const u32 full_elements = std::min(max_full_elements, gap / max_fill_element_bits);
    for (u32 i = 0; i < full_elements; ++i) write_fill_element(out, max_fill_bytes);
    gap -= full_elements * max_fill_element_bits;
    write_fill_element(out, gap / 8);
}

u32 constant_rate_frame_bits(const CodingBlock &block) { return 8 * block.mean_channel_bytes * block.num_channels; }

void quantize_and_write_sce(BitOutput out, CodingBlock &block, const FrameData &data, u32 overhead_bits, u32 channel) {
    std::array<u8, band_array_size> codebooks{};
    put_bits(out, channel, element_tag_bits);
    deduct_side_information(block, channel, overhead_bits, false);
    quantize_and_write_channel(out, block, data, codebooks, channel);
}

void quantize_and_write_cpe(BitOutput out, CodingBlock &block, const FrameData &data, u32 overhead_bits) {
    std::array<u8, band_array_size> codebooks{};
    const u32 side_bits = write_pair_side_information(out, block);
    deduct_pair_side_information(block, overhead_bits, side_bits);
    for (u32 channel = 0; channel < 2; ++channel) quantize_and_write_channel(out, block, data, codebooks, channel);
}

u32 quantize_and_write_frame(EncoderState &state, u8 *buffer, const FrameData &data) {
    BitWriter writer = fresh_bit_writer;
    const BitOutput out{buffer, writer};
    write_header(out, state);
    if (state.config.channel_configuration == channel_configuration_stereo) {
        quantize_and_write_channel_pair(out, state.coding, data);
    } else {
        quantize_and_write_single_channels(out, state, data);
    }
    if (state.config.constant_rate == 1) write_fill(out, writer.bit_count, constant_rate_frame_bits(state.coding));
    put_fields(out, element_id(Element::end));
    byte_align(out);
    if (state.config.header_type == HeaderType::adts) {
        put_bits_at(buffer, writer.bit_count / 8, adts_frame_length_bits, adts_frame_length_offset);
    }
    return writer.bit_count;
}

}  // namespace tavik
