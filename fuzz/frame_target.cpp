// From spectra to a frame: scale-factor estimation, rate loop, channel streams, elements and fill, with spectra that no
// filter bank would make and with any bit targets and starting points. Every frame is read back by the strict reader.
#include <algorithm>
#include <array>
#include <cmath>

#include "draw_config.h"
#include "interface/encoder_context.h"
#include "stage_input.h"
#include "support/standard_tables.h"
#include "support/stream_harness.h"
#include "synthesiser.h"
#include "target.h"

namespace tavik_fuzz {
namespace {

using namespace tavik;
using tavik_test::require;

// Some frames of a signal, so that the context holds a layout with long or short blocks, TNS and mid/side flags.
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

// A line is quantized as q = (8 |x| / 2^((scale factor - 100) / 4))^(3/4), to the nearest but for the encoder's choice
// of rounding, its powers (8 |x|)^(3/4), which are whole numbers below the exact ones, its table of powers, and its
// gains, which are multiples of 2^-20; with the sign of x.
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

// A frame's arrays, as the stage functions take them.
struct Arrays {
    GuardedArray<EncoderContext> context{1};
    GuardedArray<std::uint8_t> output{TAVIK_MAX_FRAME_BYTES};
    GuardedArray<i32> quantized{TAVIK_FRAME_LENGTH};
    GuardedArray<u32> codebooks{band_array_size};

    EncoderState &state() { return state_of(context[0]); }

    void check_guards() const {
        context.check_guard();
        output.check_guard();
        quantized.check_guard();
        codebooks.check_guard();
    }
};

// Spectra of the input's own, their scale factors, and any budget.
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

// A raw data block from the functions below TAVIK_WriteBitstream.
class BlockWriter {
 public:
    explicit BlockWriter(Arrays &arrays) : arrays_(arrays) {}

    // A single channel element, by one call or by its steps.
    void write_single(u32 channel, u32 share) {
        put(0, 3);
        TAVIK_WriteSCE(&state_.coding, spectrum(), pow34(), &writer_, share, output(), quantized(), channel);
    }
    void write_single_by_steps(u32 channel) {
        put(0, 3);
        put(channel, 4);
        std::ranges::fill(arrays_.codebooks.values(), 0u);
        u32 global_gain = 0;
        const u32 *offsets = state_.coding.band_sf_offset[channel].data();
        const i32 *lines = state_.spectrum[channel].data();
        TAVIK_Quantize(&state_.coding, lines, &global_gain, offsets, arrays_.codebooks.data(), quantized(),
                       state_.pow34_spectrum[channel].data(), channel);
        const u32 before = writer_.bit_count;
        const u32 bits =
            TAVIK_WriteICS(&state_.coding, global_gain, arrays_.codebooks.data(), offsets, quantized(), lines, output(),
                           &writer_, state_.coding.scale_factor_grouping[channel], channel);
        require(writer_.bit_count - before == bits, "TAVIK_WriteICS gives ", bits, " bits");
    }
    void write_pair(u32 share) {
        put(1, 3);
        TAVIK_WriteCPE(&state_.coding, spectrum(), pow34(), &writer_, share, output(), quantized());
    }

    // Returns the bits of the complete block.
    u32 finish() {
        put(7, 3);
        TAVIK_ByteAlign(output(), &writer_.bits_left, &writer_.current_byte, &writer_.bit_count, &writer_.byte_pos);
        return writer_.bit_count;
    }

 private:
    void put(u32 value, i32 bits) {
        TAVIK_ZOLF_PutBit(output(), &writer_.bits_left, &writer_.current_byte, &writer_.bit_count, &writer_.byte_pos,
                          value, bits);
    }
    const i32 *spectrum() const { return state_.spectrum[0].data(); }
    const u32 *pow34() const { return state_.pow34_spectrum[0].data(); }
    std::uint8_t *output() { return arrays_.output.data(); }
    i32 *quantized() { return arrays_.quantized.data(); }

    Arrays &arrays_;
    EncoderState &state_ = arrays_.state();
    BitWriter writer_{0, 0, 0, 8};
};

// A single channel element by steps pays for nothing but its data: this leaves room for the rest.
constexpr i32 largest_target_by_steps = buffer_bits_per_channel - 128;

u32 write_by_elements(InputBytes &input, Arrays &arrays) {
    BlockWriter writer(arrays);
    const u32 share = input.between(40, 400);
    if (arrays.state().config.channel_configuration == channel_configuration_stereo) {
        writer.write_pair(share);
        return writer.finish();
    }
    for (u32 channel = 0; channel < arrays.state().coding.num_channels; ++channel) {
        if (input.below(2) == 0) {
            writer.write_single(channel, share);
        } else {
            writer.write_single_by_steps(channel);
        }
    }
    return writer.finish();
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
        for (i32 &target : block.bits_target) target = std::min(target, largest_target_by_steps);
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
    outcome.add_output<std::uint8_t>(bytes);
}

}  // namespace

const char *const unit_name = "frames";

Outcome run_target(std::span<const std::uint8_t> bytes) {
    InputBytes input(bytes);
    Outcome outcome;
    for (; !input.empty() && outcome.units < 16; ++outcome.units) run_frame(input, outcome);
    return outcome;
}

}  // namespace tavik_fuzz
