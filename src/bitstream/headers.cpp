// Syntax elements in the standard's order and under its names.
#include "bitstream/headers.h"

#include "bitstream/fields.h"

namespace tavik {
namespace {

constexpr u32 low_complexity_profile = 1;
constexpr u32 copyright_id_bytes = 9;

// The identifier's next bit, first byte first, most significant bit first; 0 once all 72 have been sent.
u32 next_copyright_bit(TavikAdtsHeader &header) {
    if (header.copyright_bits_left == 0) return 0;
    const u32 position = 8 * copyright_id_bytes - header.copyright_bits_left--;
    return header.copyright_id[position / 8] >> (7 - position % 8) & 1;
}

}  // namespace

void write_adts_header(BitOutput out, TavikAdtsHeader &header, u32 sampling_frequency_index, u32 channel_configuration,
                       bool constant_rate) {
    constexpr u32 variable_rate_fullness = 0x7FF;
    const u32 copyright_identification_bit = next_copyright_bit(header);
    const u32 adts_buffer_fullness = constant_rate ? header.adts_buffer_fullness : variable_rate_fullness;
    put_fields(out, Field<12>{0xFFF},                            // syncword
               Field<1>{1},                                      // ID: MPEG-2 AAC
               Field<2>{0},                                      // layer
               Field<1>{1},                                      // protection_absent
               Field<2>{low_complexity_profile},                 // profile
               Field<4>{sampling_frequency_index}, Field<1>{0},  // private_bit
               Field<3>{channel_configuration}, Field<1>{header.original_copy}, Field<1>{header.home});
    put_fields(out, Field<1>{copyright_identification_bit}, Field<1>{header.copyright_identification_start},
               Field<adts_frame_length_bits>{0},               // aac_frame_length, filled in when the frame is complete
               Field<11>{adts_buffer_fullness}, Field<2>{0});  // number_of_raw_data_blocks_in_frame: one
    header.copyright_identification_start = 0;
}

void write_adif_header(BitOutput out, const TavikAdifHeader &header, const TavikProgramConfig &program) {
    put_bits(out, 0x41444946, 32);  // adif_id: "ADIF"
    put_bits(out, header.copyright_id_present, 1);
    if (header.copyright_id_present != 0) {
        for (const u8 byte : header.copyright_id) put_bits(out, byte, 8);
    }
    put_fields(out, Field<1>{header.original_copy}, Field<1>{header.home}, Field<1>{header.bitstream_type},
               Field<23>{header.bitrate}, Field<4>{0});  // num_program_config_elements: one
    if (header.bitstream_type == 0) put_bits(out, header.adif_buffer_fullness, 20);
    write_program_config(out, program);
}

void write_program_config(BitOutput out, const TavikProgramConfig &program) {
    constexpr u32 element_instance_tag = 5;
    put_fields(out, Field<4>{element_instance_tag}, Field<2>{low_complexity_profile},  // object_type
               Field<4>{program.sampling_frequency_index}, Field<4>{program.num_front_channel_elements});
    // No further elements: num_side, num_back, num_lfe, num_assoc_data, num_valid_cc; nor mono, stereo or matrix
    // mixdown.
    put_bits(out, 0, 4 + 4 + 2 + 3 + 4 + 1 + 1 + 1);
    for (u32 i = 0; i < program.num_front_channel_elements; ++i) {
        put_fields(out, Field<1>{program.front_element_is_cpe[i]}, Field<4>{program.front_element_tag_select[i]});
    }
    byte_align(out);      // counted from the start of the frame, or of the ADIF header
    put_bits(out, 0, 8);  // comment_field_bytes
}

}  // namespace tavik
