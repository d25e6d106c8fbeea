// The decoder configuration that containers store, and the size of the ADIF header.
#pragma once

#include <tavik.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavik {

// AudioSpecificConfig of a stream (ISO/IEC 14496-3, 1.6.2.1): 2 bytes. For two independent channels, which no
// channelConfiguration describes, a program_config_element follows.
std::vector<uint8_t> audio_specific_config(const EncoderConfig &config);

// Size of the stream's ADIF header in bytes (1.A.2.2).
size_t adif_header_bytes(const EncoderConfig &config);

}  // namespace tavik
