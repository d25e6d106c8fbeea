// Bits and the program_config_element are written by the library's own functions, as in the frames.
#include "audio_specific_config.h"

#include "bit_rates.h"

namespace tavik {
namespace {

constexpr uint32_t aac_lc = 2;  // audioObjectType

TavikProgramConfig program_config(const EncoderConfig &config) {
    TavikProgramConfig program{};
    program.sampling_frequency_index = TAVIK_SampleRateIndex(config.sample_rate);
    program.num_front_channel_elements = config.channel_mode == TAVIK_MODE_TWO_MONO ? 2 : 1;
    program.front_element_is_cpe[0] = config.channel_mode == TAVIK_MODE_STEREO ? 1 : 0;
    program.front_element_tag_select[1] = 1;
    return program;
}

}  // namespace

std::vector<uint8_t> audio_specific_config(const EncoderConfig &config) {
    const bool has_program_config = config.channel_mode == TAVIK_MODE_TWO_MONO;
    std::vector<uint8_t> bytes(64);
    BitWriter writer{.bit_count = 0, .byte_pos = 0, .current_byte = 0, .bits_left = 8};
    const auto put = [&](uint32_t value, int32_t bits) {
        TAVIK_ZOLF_PutBit(bytes.data(), &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos,
                          value, bits);
    };
    put(aac_lc, 5);
    put(TAVIK_SampleRateIndex(config.sample_rate), 4);
    put(has_program_config ? 0 : channel_count(config), 4);  // channelConfiguration
    put(0, 3);  // frameLengthFlag: 1024 samples; dependsOnCoreCoder; extensionFlag
    if (has_program_config) {
        const TavikProgramConfig program = program_config(config);
        TAVIK_WritePCE(&program, bytes.data(), &writer);
    }
    bytes.resize(writer.byte_pos);
    return bytes;
}

size_t adif_header_bytes(const EncoderConfig &config) {
    TavikAdifHeader header{};
    header.copyright_id_present = config.copyright_id_present;
    header.bitstream_type = 1 - config.constant_rate;
    std::vector<uint8_t> bytes(64);
    BitWriter writer{.bit_count = 0, .byte_pos = 0, .current_byte = 0, .bits_left = 8};
    const TavikProgramConfig program = program_config(config);
    return TAVIK_WriteADIFHeader(&program, &header, bytes.data(), &writer) / 8;
}

}  // namespace tavik
