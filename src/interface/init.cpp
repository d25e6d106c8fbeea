// Computes, once, everything that the frame pipeline needs and that is constant in a stream.
#include "interface/init.h"

#include <algorithm>
#include <cstring>

namespace tavik {
namespace {

constexpr u32 copyright_id_bits = 72;

void copy_config(EncoderState &state, const EncoderConfig &config) {
    StoredConfig &stored = state.config;
    stored.channel_configuration = config.channel_mode;  // until the channel layout is set
    stored.sample_rate = config.sample_rate;
    stored.bit_rate = config.bit_rate;
    stored.header_type = static_cast<HeaderType>(config.header_type);
    stored.constant_rate = config.constant_rate;
    stored.emit_priming_frame = config.emit_priming_frame;
    stored.tns_disable = config.tns_disable;
    stored.home = config.home;
    stored.original_copy = config.original_copy;
    stored.copyright_id_present = config.copyright_id_present;
    copy_elements(config.copyright_id, sizeof(config.copyright_id), stored.copyright_id.data());
    copy_elements(config.copyright_id, sizeof(config.copyright_id), state.coding.adif_header.copyright_id);
}

// The error code of the first field that is out of range, in this order; otherwise TAVIK_OK.
i32 check(const EncoderConfig &config, u32 sampling_rate_index) {
    if (config.channel_mode > TAVIK_MODE_TWO_MONO) return TAVIK_ERR_CHANNEL_MODE;
    if (sampling_rate_index == unknown_sample_rate) return TAVIK_ERR_SAMPLE_RATE;
    if (config.bit_rate < TAVIK_MIN_BIT_RATE) return TAVIK_ERR_BIT_RATE;
    if (config.bit_rate > TAVIK_MAX_BIT_RATE_FACTOR * config.sample_rate) return TAVIK_ERR_BIT_RATE;
    if (config.header_type > TAVIK_HEADER_NONE) return TAVIK_ERR_HEADER_TYPE;
    if (config.constant_rate > 1) return TAVIK_ERR_CONSTANT_RATE;
    if (config.emit_priming_frame > 1) return TAVIK_ERR_PRIMING_FRAME;
    if (config.tns_disable > 1) return TAVIK_ERR_TNS_DISABLE;
    if (config.home > 1) return TAVIK_ERR_HOME;
    if (config.original_copy > 1) return TAVIK_ERR_ORIGINAL_COPY;
    if (config.copyright_id_present > 1) return TAVIK_ERR_COPYRIGHT_ID_PRESENT;
    return TAVIK_OK;
}

void set_channel_layout(EncoderState &state, u32 channel_mode) {
    static constexpr u32 configurations[] = {channel_configuration_mono, channel_configuration_stereo,
                                             channel_configuration_two_mono};
    CodingBlock &block = state.coding;
    state.config.channel_configuration = configurations[channel_mode];
    block.num_channels = channel_mode == TAVIK_MODE_MONO ? 1 : 2;
    block.buffer_bits = buffer_bits_per_channel * block.num_channels;
    block.buffer_bytes = block.buffer_bits / 8;

    TavikProgramConfig &program = block.program_config;
    program.sampling_frequency_index = block.sampling_rate_index;
    program.num_front_channel_elements = channel_mode == TAVIK_MODE_TWO_MONO ? 2 : 1;
    program.front_element_is_cpe[0] = channel_mode == TAVIK_MODE_STEREO ? 1 : 0;
    program.front_element_tag_select[1] = program.num_front_channel_elements - 1;
}

// At 44.1 and 48 kHz the top of the spectrum is not coded: coefficients from the limit on are cleared, and the last
// coded band is the one that contains the limit.
void set_band_limit(CodingBlock &block) {
    const u32 index = block.sampling_rate_index;
    block.long_band_count = TAVIK_NumSwbLongWindow[index];
    block.short_band_count = TAVIK_NumSwbShortWindow[index];
    block.spectral_limit = index == 3 ? 864 : index == 4 ? 927 : frame_length;
    block.band_limit_active = block.spectral_limit < frame_length ? 1 : 0;
    if (block.band_limit_active == 0) return;
    const u32 *starts = TAVIK_SwbOffsetLong[index];
    block.long_band_count = 0;
    while (starts[block.long_band_count] <= block.spectral_limit) ++block.long_band_count;
}

// Where a rate loop starts without a previous result: 45, less 5 for each of these sizes that are reached. They are
// those of 64, 96 and 128 kbit/s per channel at 44.1 kHz, and the next size after each.
u32 initial_common_sf(u32 mean_channel_bytes) {
    static constexpr u16 sizes[] = {185, 186, 278, 279, 371, 372};
    u32 common_sf = 45;
    for (const u16 size : sizes) {
        if (mean_channel_bytes >= size) common_sf -= 5;
    }
    return common_sf;
}

void set_bit_budget(CodingBlock &block, u32 bit_rate, u32 sample_rate) {
    const auto frame_bits = static_cast<u32>(u64{bit_rate} * frame_length / sample_rate);
    block.mean_channel_bytes = frame_bits / 8;
    block.mean_channel_bits = 8 * block.mean_channel_bytes;
    block.mean_frame_bits = block.mean_channel_bits * block.num_channels;
    block.mean_frame_bytes = block.mean_channel_bytes * block.num_channels;
    block.available_bits = block.mean_frame_bits;
    block.initial_common_sf = initial_common_sf(block.mean_channel_bytes);
}

void set_header_values(CodingBlock &block, const StoredConfig &config) {
    const u32 peak_rate = TAVIK_MAX_BIT_RATE_FACTOR * config.sample_rate;
    const u32 fullness = block.buffer_bits - block.mean_frame_bits;

    TavikAdifHeader &adif = block.adif_header;
    adif.copyright_id_present = config.copyright_id_present;
    adif.original_copy = config.original_copy;
    adif.home = config.home;
    adif.bitstream_type = 1 - config.constant_rate;
    adif.bitrate = (config.constant_rate == 1 ? config.bit_rate : peak_rate) * block.num_channels;
    adif.adif_buffer_fullness = fullness;

    TavikAdtsHeader &adts = block.adts_header;
    adts.original_copy = config.original_copy;
    adts.home = config.home;
    adts.copyright_id = adif.copyright_id;
    adts.copyright_identification_start = config.copyright_id_present;
    adts.copyright_bits_left = config.copyright_id_present == 1 ? copyright_id_bits : 0;
    adts.adts_buffer_fullness = fullness / block.num_channels / 32;
}

}  // namespace

u32 sample_rate_index(u32 sample_rate) {
    constexpr u32 first_index = 3;
    static constexpr u32 rates[] = {48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
    const u32 *found = std::ranges::find(rates, sample_rate);
    return found == std::end(rates) ? unknown_sample_rate : first_index + static_cast<u32>(found - rates);
}

i32 initialise(EncoderState &state, const EncoderConfig &config) {
    std::memset(&state, 0, sizeof(state));
    copy_config(state, config);
    CodingBlock &block = state.coding;
    block.sampling_rate_index = sample_rate_index(config.sample_rate);
    const i32 status = check(config, block.sampling_rate_index);
    if (status != TAVIK_OK) return status;

    set_channel_layout(state, config.channel_mode);
    set_band_limit(block);
    set_bit_budget(block, config.bit_rate, config.sample_rate);
    set_header_values(block, state.config);
    block.first_frame_pending = 1;
    return TAVIK_OK;
}

}  // namespace tavik
