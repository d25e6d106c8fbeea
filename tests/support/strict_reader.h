// A strict reader of MPEG AAC Low Complexity frames, written from the syntax of ISO/IEC 14496-3 (ADIF and ADTS: also
// ISO/IEC 13818-7). It shares only the configuration with the encoder and accepts only what the encoder may write:
// elements in a fixed order, sine windows, merged sections, one TNS filter at most, zeros wherever a bit carries
// nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/bit_reader.h"
#include "tavik.h"

namespace tavik_test {

struct StreamFormat {
    EncoderConfig config;               // its fields must stand in the headers
    unsigned sampling_frequency_index;  // 0 to 11
};

// Fields of an ADTS header that depend on the number of the frame.
struct AdtsHeader {
    unsigned copyright_identification_bit;
    unsigned copyright_identification_start;
};

// Values of window_sequence.
constexpr unsigned long_start_sequence = 1;
constexpr unsigned eight_short_sequence = 2;
constexpr unsigned long_stop_sequence = 3;

struct IcsInfo {
    unsigned window_sequence;
    unsigned max_sfb;                           // coded bands of each group
    std::vector<unsigned> window_group_length;  // windows of each group; one group of one window for a long window

    bool is_short() const { return window_sequence == eight_short_sequence; }
};

struct ChannelStream {
    unsigned global_gain;
    IcsInfo ics;  // under a common window, that of the pair
    // [group][band]
    std::vector<std::vector<unsigned>> codebook;
    std::vector<std::vector<int>> scale_factor;  // 0 to 255; 0 in bands of codebook 0
    // 1024 signed values in coding order: within a group band by band, within a band window by window. A group starts
    // at 128 x the number of windows before it; 0 in lines that are not coded.
    std::vector<int> quantized;
    bool has_tns;
    std::vector<int> tns_coef;  // of its filter, -8 to 7, from the first
    // Bits of section_data, scale_factor_data, and spectral_data: codewords, signs and escapes.
    std::size_t section_bits, scale_factor_bits, spectral_bits;
};

struct Frame {
    std::optional<AdtsHeader> adts;
    std::vector<ChannelStream> channels;
    std::size_t adif_header_bytes;  // 0 without one
    std::size_t fill_bits;          // of all fill elements
};

// Reads the one frame that `bytes` consists of. `first_frame`: the ADIF header, if any, precedes it. Throws
// StreamError.
Frame read_frame(std::span<const std::uint8_t> bytes, const StreamFormat &format, bool first_frame);

}  // namespace tavik_test
