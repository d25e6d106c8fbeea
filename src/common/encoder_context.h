// The encoder's records: everything that a stream keeps between two calls, in the order and at the offsets that are
// part of the ABI. EncoderState is what the library sees in the memory that hosts know as EncoderContext.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <type_traits>

#include "common/fixed_point.h"
#include "tavik.h"

namespace tavik {

inline constexpr u32 frame_length = TAVIK_FRAME_LENGTH;  // samples, and spectral coefficients, per channel
inline constexpr u32 short_length = 128;                 // coefficients of one short window
inline constexpr u32 short_windows = 8;                  // of an eight-short block
inline constexpr u32 max_channels = 2;
inline constexpr u32 max_groups = 3;         // window groups that the encoder forms
inline constexpr u32 max_bands = 52;         // row length of band arrays
inline constexpr u32 short_offset_row = 18;  // row length of sfb_offset, per window group
inline constexpr u32 band_array_size = max_groups * max_bands;
inline constexpr u32 history_length = 2 * frame_length;  // per channel; also the distance of the two spectra
inline constexpr u32 buffer_bits_per_channel = 6144;     // the standard's decoder input buffer per channel

// The standard's numbering.
enum class WindowSequence : u32 { only_long = 0, long_start = 1, eight_short = 2, long_stop = 3 };

enum class HeaderType : u32 { adts = 0, adif = 1, none = 2 };

// ms_mask_present.
enum class MsMask : u32 { none = 0, per_band = 1, all = 2 };

template <typename T>
using PerChannel = std::array<T, max_channels>;

// One channel's arrays, as the stages pass them.
using Spectrum = std::span<i32, frame_length>;
using ConstSpectrum = std::span<const i32, frame_length>;
using Pow34 = std::span<u32, frame_length>;
using ConstPow34 = std::span<const u32, frame_length>;
using BandArray = std::span<u32, band_array_size>;  // group-major: entry max_bands x group + band
using ConstBandArray = std::span<const u32, band_array_size>;
using Codebooks = std::span<u8, band_array_size>;  // likewise; 0 ... 11
using ConstCodebooks = std::span<const u8, band_array_size>;

// Layout, targets and results of the frame being coded, then the values fixed by TAVIK_Init and those that the frame
// driver carries from frame to frame. Mono uses entry 0 of each PerChannel array.
struct CodingBlock {
    u32 sampling_rate_index;  // 3 (48 kHz) to 11 (8 kHz)
    u32 num_channels;
    PerChannel<u32> common_sf;              // scale factor of a band = 100 + common_sf + its offset
    PerChannel<u32> scale_factor_grouping;  // 7 bits; of the latest eight-short block
    PerChannel<WindowSequence> window_sequence;
    PerChannel<u32> max_sfb;            // coded bands per window group
    PerChannel<u32> num_window_groups;  // 1 for long blocks, 2 or 3 for eight-short blocks
    PerChannel<std::array<u32, max_groups>> window_group_length;
    // Band starts relative to the group's first coefficient: one run for long blocks, rows of 18 for eight-short.
    PerChannel<std::array<u32, max_groups * short_offset_row>> sfb_offset;
    PerChannel<const u32 *> sfb_offset_start;                     // each channel's sfb_offset; read by the bit counter
    PerChannel<i32> bits_target;                                  // for section, scale-factor and spectral data
    PerChannel<i32> bits_tolerance;                               // half-width of the rate loop's acceptance window
    PerChannel<std::array<u32, band_array_size>> band_sf_offset;  // 0 to 18
    PerChannel<u32> has_signal;                                   // 1: some coded coefficient is not zero
    PerChannel<TavikTnsData> tns_data;
    std::array<u32, max_bands> ms_used;
    u32 common_window;
    MsMask ms_mask_present;
    TavikProgramConfig program_config;
    TavikAdifHeader adif_header;
    TavikAdtsHeader adts_header;
    u32 first_frame_pending;  // 1 until the first frame is written
    u32 stream_state;         // end-of-stream protocol, 0 to 5
    u32 long_band_count;
    u32 short_band_count;
    u32 spectral_limit;     // first line that the low-pass removes, 1024 = none
    u32 band_limit_active;  // 1: the low-pass applies
    u32 mean_frame_bits;
    u32 mean_channel_bits;  // a multiple of 8
    u32 mean_frame_bytes;
    u32 buffer_bits;  // 6144 per channel
    u32 buffer_bytes;
    i32 reservoir_bytes;                // saved by earlier frames, 0 to 2^20 - 1
    u32 available_bits;                 // that the next frame may use, at most buffer_bits
    u32 initial_common_sf;              // where the rate loop starts after a change of window
    PerChannel<u32> short_run_active;   // 1 from a LONG_START to the next LONG_STOP
    PerChannel<u32> prev_attack_index;  // attack_index one call earlier
    PerChannel<u32> attack_index;       // sub-block of the latest attack, 0 to 7
    u32 block_switching_active;         // 1 once start-up is over
    PerChannel<TavikAttackDetectorState> attack_detector_state;
    PerChannel<std::array<i32, 16>> subblock_peak;  // 8 of the newer history half, 8 of the lookahead
    u32 mean_channel_bytes;
};

// `config` as given, except that the first word holds channel_configuration: 1 mono, 2 stereo, 0 two single channels.
struct StoredConfig {
    u32 channel_configuration;
    u32 sample_rate;
    u32 bit_rate;
    HeaderType header_type;
    u32 constant_rate;
    u32 emit_priming_frame;
    u32 tns_disable;
    u32 home;
    u32 original_copy;
    u32 copyright_id_present;
    std::array<u8, 9> copyright_id;
};

inline constexpr u32 channel_configuration_two_mono = 0;
inline constexpr u32 channel_configuration_mono = 1;
inline constexpr u32 channel_configuration_stereo = 2;

}  // namespace tavik

// The name that the C header gives to the coding block.
struct TavikCodingBlock : tavik::CodingBlock {};

namespace tavik {

struct EncoderState {
    i32 status;
    std::array<i32, frame_length> work_buffer;                  // scratch of filter bank and regrouping
    PerChannel<std::array<i32, history_length>> time_history;   // the block to be coded, older frame first
    PerChannel<std::array<i32, frame_length>> lookahead_input;  // the newest input frame
    PerChannel<std::array<i32, history_length>> spectrum;       // first half: coefficients; second: work space
    PerChannel<std::array<u32, frame_length>> pow34_spectrum;
    StoredConfig config;
    TavikCodingBlock coding;
    std::array<u8, 72> unused;
};

static_assert(sizeof(EncoderConfig) == 52 && sizeof(StoredConfig) == sizeof(EncoderConfig));
static_assert(sizeof(TavikTnsData) == 64 && sizeof(TavikAttackDetectorState) == 16);
static_assert(sizeof(TavikProgramConfig) == 136 && sizeof(TavikAdifHeader) == 36 && sizeof(TavikAdtsHeader) == 32);
static_assert(sizeof(EncoderState) == TAVIK_CONTEXT_BYTES && sizeof(EncoderContext) == TAVIK_CONTEXT_BYTES);
static_assert(alignof(EncoderState) == alignof(EncoderContext));
static_assert(std::is_standard_layout_v<EncoderState> && std::is_trivially_copyable_v<EncoderState>);
static_assert(offsetof(EncoderState, status) == 0 && offsetof(EncoderState, work_buffer) == 4);
static_assert(offsetof(EncoderState, time_history) == 4100 && offsetof(EncoderState, lookahead_input) == 20484);
static_assert(offsetof(EncoderState, spectrum) == 28676 && offsetof(EncoderState, pow34_spectrum) == 45060);
static_assert(offsetof(EncoderState, config) == 53252);
static_assert(offsetof(EncoderState, coding) == TAVIK_CODING_BLOCK_OFFSET);
static_assert(offsetof(EncoderState, unused) == offsetof(EncoderState, coding) + sizeof(CodingBlock));
static_assert(offsetof(CodingBlock, sfb_offset) == 72 && offsetof(CodingBlock, sfb_offset_start) == 504);
static_assert(offsetof(CodingBlock, band_sf_offset) == 536 && offsetof(CodingBlock, ms_used) == 1920);
static_assert(offsetof(CodingBlock, adts_header) == 2312 && offsetof(CodingBlock, mean_channel_bytes) == 2588);

// The two views of the same memory: the one place that sees it as both.
// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast)
inline EncoderState &state_of(EncoderContext &context) { return reinterpret_cast<EncoderState &>(context); }
inline const EncoderState &state_of(const EncoderContext &context) {
    return reinterpret_cast<const EncoderState &>(context);
}
// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)

// Copies `count` elements, one by one and front to back: std::copy would call memmove, and the library imports nothing
// but memset.
template <typename T>
constexpr void copy_elements(const T *from, std::size_t count, T *to) {
    for (std::size_t i = 0; i < count; ++i) to[i] = from[i];
}

// The first 1024 entries of a channel's array of 2048.
template <typename T>
constexpr auto first_half(std::array<T, history_length> &data) {
    return std::span<T, history_length>(data).template first<frame_length>();
}

}  // namespace tavik
