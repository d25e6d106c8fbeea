// What a container tells a decoder about the frames inside.
#pragma once

#include <tavik.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavik {

// AudioSpecificConfig of a stream (ISO/IEC 14496-3, 1.6.2.1): 2 bytes; with two independent channels, which no channel
// configuration describes, also a program_config_element.
std::vector<uint8_t> audio_specific_config(const EncoderConfig &config);

// Bytes of the ADIF header in front of such a stream (1.A.2.2).
size_t adif_header_bytes(const EncoderConfig &config);

}  // namespace tavik
