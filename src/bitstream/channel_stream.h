// individual_channel_stream: the coded data of one channel.
#pragma once

#include "bitstream/bit_writer.h"
#include "common/encoder_context.h"

namespace tavik {

inline constexpr u32 global_gain_bits = 8;
inline constexpr u32 ics_flag_bits = 3;  // pulse_data_present, tns_data_present, gain_control_data_present

// One quantized channel, as the rate loop leaves it.
struct CodedChannel {
    u32 global_gain;
    ConstCodebooks codebooks;
    ConstBandArray band_sf_offset;
    std::span<const i32, frame_length> quantized;
    ConstSpectrum spectrum;  // for the signs of values that are stored as magnitudes
};

// Bits that are written as ics_info and as a channel's tns_data (0 when not present).
constexpr u32 ics_info_bits(WindowSequence sequence) { return sequence == WindowSequence::eight_short ? 15 : 11; }
u32 tns_data_bits(const TavikTnsData &tns);

void write_ics_info(BitOutput out, WindowSequence sequence, u32 max_sfb, u32 scale_factor_grouping);

// individual_channel_stream of a channel, with its ics_info unless the channel pair shares one.
void write_channel_stream(BitOutput out, const CodingBlock &block, const CodedChannel &coded, u32 scale_factor_grouping,
                          u32 channel);

}  // namespace tavik
