// A strict reader of MPEG AAC Low Complexity frames, written from the syntax of ISO/IEC 14496-3 (ADIF and ADTS: also
// ISO/IEC 13818-7). It shares nothing with the encoder and accepts only what the encoder may write: elements in a fixed
// order, sine windows, merged sections, one TNS filter at most, zeros wherever a bit carries nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/bit_reader.h"

namespace tavik_test {

enum class Framing { adts, adif, raw };

enum class ChannelMode {
    mono,     // single channel element, tag 0
    stereo,   // channel pair element, tag 0
    two_mono  // single channel elements, tags 0 and 1; a program config element leads every ADTS frame
};

struct StreamFormat {
    Framing framing;
    ChannelMode channel_mode;
    unsigned sampling_frequency_index;  // 0 to 11
};

// Fields of an ADTS header that may vary; syncword, layer, protection_absent, profile, private_bit and
// number_of_raw_data_blocks_in_frame have one permitted value each.
struct AdtsHeader {
    unsigned id;  // 1 = ISO/IEC 13818-7, 0 = ISO/IEC 14496-3
    unsigned sampling_frequency_index;
    unsigned channel_configuration;
    unsigned original_copy;
    unsigned home;
    unsigned copyright_identification_bit;
    unsigned copyright_identification_start;
    unsigned frame_length;     // bytes, header included
    unsigned buffer_fullness;  // 0x7ff = variable rate
};

struct ChannelElement {
    bool is_pair;
    unsigned tag;

    bool operator==(const ChannelElement &) const = default;
};

// A program_config_element with front elements only; all else must be absent.
struct ProgramConfig {
    unsigned tag;
    unsigned sampling_frequency_index;
    std::vector<ChannelElement> front_elements;
};

struct AdifHeader {
    std::optional<std::array<std::uint8_t, 9>> copyright_id;
    unsigned original_copy;
    unsigned home;
    unsigned bitstream_type;                  // 0 = constant rate, 1 = variable rate
    unsigned bitrate;                         // bit/s
    std::optional<unsigned> buffer_fullness;  // bits; constant rate only
    ProgramConfig program_config;
};

// Values of window_sequence.
constexpr unsigned only_long_sequence = 0;
constexpr unsigned long_start_sequence = 1;
constexpr unsigned eight_short_sequence = 2;
constexpr unsigned long_stop_sequence = 3;

struct IcsInfo {
    unsigned window_sequence;
    unsigned max_sfb;                           // coded bands of each group
    unsigned scale_factor_grouping;             // 7 bits; 0 for a long window
    std::vector<unsigned> window_group_length;  // windows of each group; one group of one window for a long window

    bool is_short() const { return window_sequence == eight_short_sequence; }
};

struct TnsFilter {
    unsigned coef_res;       // 1: 4-bit resolution, 0: 3-bit resolution
    unsigned length;         // bands covered, from the window's last band downwards
    unsigned order;          // 0 to 12
    unsigned direction;      // 0 = upwards in frequency
    unsigned coef_compress;  // 1: the most significant bit of each coefficient is not sent
    std::array<int, 12> coef;
};

constexpr int no_scale_factor = -1;

struct ChannelStream {
    unsigned global_gain;
    IcsInfo ics;  // under a common window, that of the pair
    // [group][band]
    std::vector<std::vector<unsigned>> codebook;
    std::vector<std::vector<int>> scale_factor;  // 0 to 255; no_scale_factor in bands of codebook 0
    // 1024 signed values in coding order: within a group band by band, within a band window by window. A group starts
    // at 128 x the number of windows before it; 0 in lines that are not coded.
    std::vector<int> quantized;
    std::optional<TnsFilter> tns;

    unsigned section_bits;       // section_data
    unsigned scale_factor_bits;  // scale_factor_data
    unsigned tns_bits;           // tns_data, without tns_data_present
    unsigned spectral_bits;      // spectral_data: codewords, signs and escapes
    unsigned total_bits;         // individual_channel_stream; without ics_info under a common window
};

struct Frame {
    std::optional<AdtsHeader> adts;
    std::optional<AdifHeader> adif;
    std::optional<ProgramConfig> pce_in_block;
    std::vector<ChannelElement> elements;
    std::vector<ChannelStream> channels;

    // Of a channel pair element.
    bool common_window = false;
    unsigned ms_mask_present = 0;
    std::vector<std::vector<bool>> ms_used;  // [group][band]; empty without a common window

    unsigned fill_elements = 0;
    unsigned fill_bits = 0;    // fill elements with their identifiers
    unsigned header_bits = 0;  // ADTS or ADIF header
    unsigned total_bits = 0;   // raw_data_block with its byte alignment
};

// Reads the one frame that `bytes` consists of. `first_frame`: the ADIF header, if any, precedes it. Throws
// StreamError.
Frame read_frame(std::span<const std::uint8_t> bytes, const StreamFormat &format, bool first_frame);

}  // namespace tavik_test
