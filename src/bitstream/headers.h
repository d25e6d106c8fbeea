// Stream headers: ADTS, ADIF and the program config element (ISO/IEC 14496-3, 13818-7).
#pragma once

#include "bitstream/bit_writer.h"

namespace tavik {

inline constexpr u32 adts_frame_length_bits = 13;
inline constexpr u32 adts_frame_length_offset = 30;  // bit position of aac_frame_length, in bytes, header included

// adts_fixed_header and adts_variable_header without CRC, aac_frame_length still 0. Moves on to the next bit of the
// copyright identifier, of which each frame sends one.
void write_adts_header(BitOutput out, TavikAdtsHeader &header, u32 sampling_frequency_index, u32 channel_configuration,
                       bool constant_rate);

// adif_header with one program config element, without the byte alignment after it.
void write_adif_header(BitOutput out, const TavikAdifHeader &header, const TavikProgramConfig &program);

// program_config_element, without an element identifier.
void write_program_config(BitOutput out, const TavikProgramConfig &program);

}  // namespace tavik
