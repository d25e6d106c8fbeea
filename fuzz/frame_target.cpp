// From spectra to a frame: scale-factor estimation, rate loop, channel streams, elements and fill. The spectra include
// those that a filter bank cannot produce; bit targets and starting points are arbitrary. The strict reader checks all.
#include <algorithm>
#include <array>
#include <cmath>

#include "common/encoder_context.h"
#include "draw_config.h"
#include "support/guarded_memory.h"
#include "support/require.h"
#include "support/standard_tables.h"
#include "support/stream_harness.h"
#include "support/values.h"
#include "synthesiser.h"
#include "target.h"

namespace tavik_fuzz {
namespace {

using namespace tavik;
using tavik_test::GuardedArray;
using tavik_test::require;

// Draws values of magnitude `limit` at most, controlled by a few bytes.
void draw_values(InputBytes &input, std::span<i32> values, u32 limit) {
    tavik_test::ValuePattern pattern{};
    pattern.kind = static_cast<tavik_test::ValuePattern::Kind>(input.below(tavik_test::ValuePattern::count));
    pattern.level = static_cast<i32>(input.between(0, limit));
    pattern.seed = 1u + input.word();
    pattern.distance = 1u + input.byte();
    fill_values(values, pattern);
}

// Encodes some frames of a signal, so that the context has long or short blocks, TNS and mid/side flags.
void prepare(InputBytes &input, const EncoderConfig &config, EncoderContext &context) {
    require(TAVIK_Init(&context, &config) == 0, "TAVIK_Init");
    Synthesiser signal(input);
    std::array<std::int16_t, 2 * TAVIK_FRAME_LENGTH> pcm{};
    std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES> output;
    const unsigned channels = tavik_test::channel_count(config);
    for (unsigned frames = 2 + input.below(4); frames > 0; --frames) {
        signal.fill(std::span(pcm).first(TAVIK_FRAME_LENGTH * channels), channels);
        std::uint32_t samples = TAVIK_FRAME_LENGTH, bytes = 0;
        TAVIK_Encode(&context, pcm.data(), &samples, output.data(), &bytes);
    }
}

void draw_budget(InputBytes &input, CodingBlock &block, u32 channel) {
    block.bits_target[channel] = static_cast<i32>(input.between(0, 8144)) - 2000;
    block.bits_target[channel] = std::min(block.bits_target[channel], static_cast<i32>(buffer_bits_per_channel));
    block.bits_tolerance[channel] = static_cast<i32>(input.between(0, 620)) - 6;
    block.common_sf[channel] = input.below(128);
}

void check_channel(const CodingBlock &block, const tavik_test::ChannelStream &stream, u32 channel) {
    const std::size_t counted = stream.section_bits + stream.scale_factor_bits + stream.spectral_bits;
    const bool is_silent = std::ranges::count(stream.quantized, 0) == TAVIK_FRAME_LENGTH;
    require(is_silent || static_cast<i32>(counted) <= block.bits_target[channel], counted, " bits for a target of ",
            block.bits_target[channel]);
    require(stream.global_gain >= 100 && (!is_silent || counted <= 39), "global_gain ", stream.global_gain, ", ",
            counted, " bits of silence");
}

// Checks that a line is quantized as q = (8 |x| / 2^((scale factor - 100) / 4))^(3/4), rounded, with the sign of x. The
// tolerance allows for the encoder's rounding rule, its table of powers (8 |x|)^(3/4), which are truncated to integers,
// and its gains, which are multiples of 2^-20.
void check_line(int q, i32 x, int scale_factor) {
    const double magnitude = std::min(std::abs(static_cast<double>(x)), 8388607.0);
    const double gain = std::exp2((100 - scale_factor) * 3 / 16.0);
    const double exact = std::pow(8 * magnitude, 0.75) * gain;
    const double tolerance = 0.65 + gain + exact * (0.01 + std::exp2(-20) / gain);
    require(std::abs(std::abs(q) - exact) <= tolerance && (q == 0 || (q < 0) == (x < 0)), "line of ", x,
            " with scale factor ", scale_factor, " is ", q);
}

void check_lines(const tavik_test::ChannelStream &stream, std::span<const i32> spectrum, u32 rate_index) {
    const auto &limits = tavik_test::standard_tables().bands(rate_index, stream.ics.is_short());
    std::size_t group_begin = 0;
    for (std::size_t group = 0; group < stream.codebook.size(); ++group) {
        const std::size_t windows = stream.ics.window_group_length[group];
        for (std::size_t band = 0; band < stream.codebook[group].size(); ++band) {
            if (stream.codebook[group][band] == 0) continue;
            for (std::size_t k = group_begin + windows * limits[band]; k < group_begin + windows * limits[band + 1];
                 ++k) {
                check_line(stream.quantized[k], spectrum[k], stream.scale_factor[group][band]);
            }
        }
        group_begin += windows * 128;
    }
}

// The arrays that the stage functions need for a frame.
struct Arrays {
    GuardedArray<EncoderContext> context{1};
    GuardedArray<std::uint8_t> output{TAVIK_MAX_FRAME_BYTES};
    GuardedArray<i32> quantized{TAVIK_FRAME_LENGTH};

    EncoderState &state() { return state_of(context[0]); }

    void check_guards() const {
        context.check_guard();
        output.check_guard();
        quantized.check_guard();
    }
};

// Replaces the spectra and the bit budget by drawn ones, and computes the scale factors.
void replace_spectra(InputBytes &input, EncoderState &state) {
    CodingBlock &block = state.coding;
    for (u32 channel = 0; channel < block.num_channels; ++channel) {
        draw_values(input, state.spectrum[channel], (1 << 24) - 1);
        TAVIK_PreQuant(&state.coding, state.pow34_spectrum[channel].data(), state.spectrum[channel].data(),
                       block.band_sf_offset[channel].data(), channel);
        for (u32 group = 0; group < block.num_window_groups[channel]; ++group) {
            for (u32 band = 0; band < block.max_sfb[channel]; ++band) {
                require(block.band_sf_offset[channel][max_bands * group + band] <= 18, "offset of band ", band);
            }
        }
        draw_budget(input, block, channel);
    }
}

// Writes a raw data block with the functions that TAVIK_WriteBitstream calls. Returns its number of bits.
u32 write_by_elements(InputBytes &input, Arrays &arrays) {
    EncoderState &state = arrays.state();
    std::uint8_t *output = arrays.output.data();
    const i32 *spectrum = state.spectrum[0].data();
    const u32 *pow34 = state.pow34_spectrum[0].data();
    BitWriter writer{0, 0, 0, 8};
    const auto put_identifier = [&](u32 value) {
        TAVIK_ZOLF_PutBit(output, &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos, value,
                          3);
    };
    const u32 share = input.between(40, 400);
    if (state.config.channel_configuration == channel_configuration_stereo) {
        put_identifier(1);
        TAVIK_WriteCPE(&state.coding, spectrum, pow34, &writer, share, output, arrays.quantized.data());
    } else {
        for (u32 channel = 0; channel < state.coding.num_channels; ++channel) {
            put_identifier(0);
            TAVIK_WriteSCE(&state.coding, spectrum, pow34, &writer, share, output, arrays.quantized.data(), channel);
        }
    }
    put_identifier(7);
    TAVIK_ByteAlign(output, &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos);
    return writer.bit_count;
}

void run_frame(InputBytes &input, Outcome &outcome) {
    static Arrays arrays;
    EncoderConfig config = draw_valid_config(input);
    config.emit_priming_frame = 1;
    prepare(input, config, arrays.context[0]);
    EncoderState &state = arrays.state();
    CodingBlock &block = state.coding;
    replace_spectra(input, state);
    u32 bits = 0;
    if (input.below(2) == 0) {
        bits = TAVIK_WriteBitstream(arrays.context.data(), state.spectrum[0].data(), state.pow34_spectrum[0].data(),
                                    arrays.output.data(), arrays.quantized.data());
    } else {
        bits = write_by_elements(input, arrays);
        config.header_type = TAVIK_HEADER_NONE;
    }
    arrays.check_guards();
    const auto bytes = arrays.output.values().first(bits / 8);
    const tavik_test::Frame frame = tavik_test::read_frame(bytes, tavik_test::stream_format(config), false);
    for (u32 channel = 0; channel < block.num_channels; ++channel) {
        check_channel(block, frame.channels[channel], channel);
        check_lines(frame.channels[channel], state.spectrum[channel], block.sampling_rate_index);
    }
    outcome.output.add(std::span<const std::uint8_t>(bytes));
}

}  // namespace

Outcome run_target(std::span<const std::uint8_t> bytes) {
    InputBytes input(bytes);
    Outcome outcome;
    for (; !input.empty() && outcome.frames < 16; ++outcome.frames) run_frame(input, outcome);
    return outcome;
}

}  // namespace tavik_fuzz
