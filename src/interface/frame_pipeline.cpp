// Attack detection -> filter bank -> tools -> bit targets and scale factors -> rate loop and bitstream. The order of
// stages and of channels is part of the result: the channels draw from one bit reservoir, one after the other.
#include "interface/frame_pipeline.h"

#include "bitstream/frame.h"
#include "filterbank/block_switching.h"
#include "filterbank/filter_bank.h"
#include "interface/bit_budget.h"
#include "quant/scale_factors.h"
#include "tables/tns_tables.h"
#include "tools/ms_stereo.h"
#include "tools/tns.h"

namespace tavik {
namespace {

bool is_eight_short(const CodingBlock &block, u32 channel) {
    return block.window_sequence[channel] == WindowSequence::eight_short;
}

// The channels of a pair share their window description when both use the same long window.
bool has_common_window(const EncoderState &state) {
    const CodingBlock &block = state.coding;
    return state.config.channel_configuration == channel_configuration_stereo &&
           block.window_sequence[0] == block.window_sequence[1] && !is_eight_short(block, 0);
}

// The grouping comes from the attack found one call earlier, when the newer half of this block was the lookahead.
void set_short_grouping(CodingBlock &block, u32 channel) {
    const auto &grouping = TAVIK_scale_factor_grouping_table[block.prev_attack_index[channel]];
    copy_elements(grouping, max_groups, block.window_group_length[channel].data());
    block.num_window_groups[channel] = grouping[max_groups];
    block.scale_factor_grouping[channel] = grouping[max_groups + 1];
}

void set_band_layout(CodingBlock &block, u32 channel) {
    const u32 *starts = TAVIK_SwbOffsetLong[block.sampling_rate_index];
    u32 bands = block.long_band_count;
    block.num_window_groups[channel] = 1;
    block.window_group_length[channel][0] = 1;
    if (is_eight_short(block, channel)) {
        starts = TAVIK_SwbOffsetShort[block.sampling_rate_index];
        bands = block.short_band_count;
        set_short_grouping(block, channel);
    }
    block.max_sfb[channel] = bands;
    block.sfb_offset_start[channel] = block.sfb_offset[channel].data();
    u32 *row = block.sfb_offset[channel].data();
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g, row += short_offset_row) {
        const u32 windows = block.window_group_length[channel][g];
        for (u32 b = 0; b <= bands; ++b) row[b] = windows * starts[b];
    }
}

// Brings eight short spectra, one after the other, into coding order: group by group, band by band, window by window.
void regroup_short_spectra(const CodingBlock &block, Spectrum spectrum, std::span<i32, frame_length> scratch,
                           u32 channel) {
    const u32 *starts = TAVIK_SwbOffsetShort[block.sampling_rate_index];
    i32 *out = scratch.data();
    u32 first_window = 0;
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        const u32 end_window = first_window + block.window_group_length[channel][g];
        for (u32 b = 0; b < block.short_band_count; ++b) {
            for (u32 w = first_window; w < end_window; ++w) {
                const u32 width = starts[b + 1] - starts[b];
                copy_elements(spectrum.data() + w * short_length + starts[b], width, out);
                out += width;
            }
        }
        first_window = end_window;
    }
    copy_elements(scratch.data(), frame_length, spectrum.data());
}

// Temporal noise shaping of a long block, if the configuration and the bit rate allow it.
void shape_temporal_noise(EncoderState &state, Spectrum spectrum, u32 channel) {
    CodingBlock &block = state.coding;
    const u32 index = block.sampling_rate_index;
    if (state.config.tns_disable == 1 || state.config.bit_rate < tables::tns_min_bitrate[index]) return;
    temporal_noise_shaping(block.tns_data[channel], spectrum, index, TAVIK_NumSwbLongWindow[index],
                           block.long_band_count);
}

// From a channel's time history to the spectrum that is quantized, but for mid/side.
void analyse_spectrum(EncoderState &state, u32 channel) {
    CodingBlock &block = state.coding;
    const Spectrum spectrum = first_half(state.spectrum[channel]);
    filter_bank(state.time_history[channel], state.spectrum[channel], block.window_sequence[channel], state.work_buffer,
                0);
    block.tns_data[channel].tns_data_present = 0;
    if (is_eight_short(block, channel)) {
        regroup_short_spectra(block, spectrum, state.work_buffer, channel);
    } else {
        if (block.band_limit_active == 1) low_pass(spectrum, block.spectral_limit);
        shape_temporal_noise(state, spectrum, channel);
    }
}

// Mid/side needs a common window, and temporal noise shaping in both channels or in neither.
void code_mid_side(EncoderState &state) {
    CodingBlock &block = state.coding;
    const bool tns_data_present = block.tns_data[0].tns_data_present != 0;
    block.ms_mask_present = MsMask::none;
    if (block.common_window == 1 && tns_data_present == (block.tns_data[1].tns_data_present != 0)) {
        block.ms_mask_present =
            ms_stereo(first_half(state.spectrum[0]), first_half(state.spectrum[1]), block.sampling_rate_index,
                      block.ms_used, block.bits_target, block.max_sfb[0], tns_data_present);
    } else {
        block.ms_used.fill(0);
    }
}

// The rate loop starts from the previous frame's result if there is one and it is of the same long window.
void seed_common_sf(CodingBlock &block, WindowSequence previous_window_sequence, u32 channel) {
    if (block.common_sf[channel] == 0 || block.window_sequence[channel] != previous_window_sequence ||
        is_eight_short(block, channel)) {
        block.common_sf[channel] = block.initial_common_sf;
    }
}

}  // namespace

PerChannel<WindowSequence> decide_windows(EncoderState &state) {
    CodingBlock &block = state.coding;
    PerChannel<WindowSequence> previous{WindowSequence::only_long, WindowSequence::only_long};
    block.prev_attack_index = block.attack_index;
    for (u32 channel = 0; channel < block.num_channels; ++channel) {
        const auto peaks = std::span(block.subblock_peak[channel]);
        copy_elements(peaks.data() + subblocks, subblocks, peaks.data());
        measure_peaks(state.lookahead_input[channel], peaks.last<subblocks>());
        if (block.block_switching_active == 0) continue;
        previous[channel] = block.window_sequence[channel];
        block.window_sequence[channel] =
            decide_window(block.sampling_rate_index, peaks, block.short_run_active[channel],
                          block.attack_index[channel], block.attack_detector_state[channel]);
    }
    return previous;
}

u32 encode_frame(EncoderState &state, const PerChannel<WindowSequence> &previous_sequences, u8 *output) {
    CodingBlock &block = state.coding;
    const u32 channels = block.num_channels;

    // Analyse.
    block.common_window = has_common_window(state) ? 1 : 0;
    for (u32 channel = 0; channel < channels; ++channel) {
        set_band_layout(block, channel);
        analyse_spectrum(state, channel);
    }

    // Allocate bits.
    reset_bit_targets(block);
    code_mid_side(state);
    i32 available = set_bit_tolerances(block);
    const std::span<i32> band_peaks = state.work_buffer;
    for (u32 channel = 0; channel < channels; ++channel) {
        seed_common_sf(block, previous_sequences[channel], channel);
        estimate_scale_factors(block, state.pow34_spectrum[channel], first_half(state.spectrum[channel]),
                               block.band_sf_offset[channel],
                               band_peaks.subspan(channel * max_bands).first<max_bands>(), channel);
        if (state.config.constant_rate == 0) {
            draw_from_reservoir(state, available, previous_sequences[channel], channel);
        }
    }

    // Quantize and write, channel by channel.
    const auto quantized = std::span(state.time_history[0]).first<frame_length>();
    const u32 frame_bits = quantize_and_write_frame(
        state, output, {state.spectrum[0].data(), state.pow34_spectrum[0].data(), quantized, band_peaks.data()});
    const u32 frame_bytes = (frame_bits + 7) / 8;
    update_reservoir(block, frame_bytes);
    return frame_bytes;
}

}  // namespace tavik
