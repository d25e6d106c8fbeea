// Bit writer, headers, escape sequences and fill, read back bit by bit.
#include <algorithm>
#include <array>
#include <vector>

#include "stage_input.h"
#include "support/bit_reader.h"
#include "target.h"
#include "tavik.h"

namespace tavik_fuzz {
namespace {

using tavik_test::BitReader;
using tavik_test::require;

constexpr BitWriter fresh_writer{0, 0, 0, 8};
constexpr std::size_t buffer_bytes = 2 * TAVIK_MAX_FRAME_BYTES;

GuardedArray<std::uint8_t> &buffer() {
    static GuardedArray<std::uint8_t> bytes(buffer_bytes);
    return bytes;
}

std::span<const std::uint8_t> written(const BitWriter &writer) { return buffer().values().first(writer.bit_count / 8); }

void put(BitWriter &writer, std::uint32_t value, unsigned bits) {
    TAVIK_ZOLF_PutBit(buffer().data(), &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos,
                      value, static_cast<std::int32_t>(bits));
}

void align(BitWriter &writer) {
    const std::uint32_t expected = (8 - writer.bit_count % 8) % 8;
    const std::uint32_t bits =
        TAVIK_ByteAlign(buffer().data(), &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos);
    require(bits == expected, bits, " bits of alignment");
    require(writer.bit_count % 8 == 0 && writer.byte_pos == writer.bit_count / 8 && writer.bits_left == 8, "writer");
    buffer().check_guard();
}

std::uint32_t low_bits(std::uint32_t value, unsigned bits) { return bits < 32 ? value & ((1u << bits) - 1) : value; }

void run_bit_writer(InputBytes &input, Outcome &outcome) {
    struct Field {
        std::uint32_t value;
        unsigned bits;
    };
    std::vector<Field> fields;
    BitWriter writer = fresh_writer;
    for (unsigned count = input.byte(); count > 0; --count) {
        const unsigned bits = input.below(33);
        fields.push_back({low_bits(input.long_word(), bits), bits});
        put(writer, fields.back().value, bits);
    }
    align(writer);
    BitReader reader(written(writer));
    for (const auto &[value, bits] : fields) reader.expect(bits, value, "field");
    require(reader.bits_left() < 8, "bits left over");
    reader.expect(static_cast<unsigned>(reader.bits_left()), 0, "alignment");

    const unsigned bits = 1 + input.below(32);
    if (writer.bit_count < bits) return;
    const std::uint32_t offset = input.word() % (writer.bit_count - bits + 1);
    const std::uint32_t value = low_bits(input.long_word(), bits);
    BitReader before(written(writer));
    for (std::uint32_t skipped = 0; skipped < offset; ++skipped) before.read(1);
    const std::uint32_t old = before.read(bits);
    TAVIK_ZOLF_PutBit_Offset(buffer().data(), value, static_cast<std::int32_t>(bits), offset);
    BitReader after(written(writer));
    for (std::uint32_t skipped = 0; skipped < offset; ++skipped) after.read(1);
    after.expect(bits, value | old, "patched field");
    outcome.add_output(written(writer));
}

void run_escape_sequence(InputBytes &input, Outcome &outcome) {
    const auto size = static_cast<std::int32_t>(input.between(16, 8191));
    std::uint32_t length = 0;
    const std::uint32_t code = TAVIK_CalculateEscSequence(input.below(2) == 0 ? size : -size, &length);
    BitWriter writer = fresh_writer;
    put(writer, code, length);
    align(writer);
    BitReader reader(written(writer));
    unsigned word_bits = 4;
    while (reader.read(1) == 1) ++word_bits;
    require((1u << word_bits) + reader.read(word_bits) == static_cast<std::uint32_t>(size), "escape of ", size);
    require(reader.position() == length, "length of the escape of ", size);
    outcome.add_output(written(writer));
}

// A row of ADTS headers: the copyright identifier goes out one bit per frame.
void run_adts_headers(InputBytes &input, Outcome &outcome) {
    std::array<std::uint8_t, 9> id{};
    const std::size_t pattern = input.word();
    for (std::size_t i = 0; i < id.size(); ++i) id[i] = static_cast<std::uint8_t>(pattern * (i + 1) >> 3);
    const bool has_id = input.below(2) == 0;
    const std::uint32_t rate_index = input.below(12), channels = input.below(3), constant_rate = input.below(2);
    TavikAdtsHeader header{input.below(2),   input.below(2),    id.data(),
                           has_id ? 1u : 0u, has_id ? 72u : 0u, input.word() % 193u};
    for (unsigned number = 0; number < 75; ++number) {
        BitWriter writer = fresh_writer;
        TAVIK_WriteADTSHeader(rate_index, constant_rate, &header, buffer().data(), &writer, channels);
        require(writer.bit_count == 56 && writer.bits_left == 8, "ADTS header of ", writer.bit_count, " bits");
        BitReader reader(written(writer));
        reader.expect(16, 0xfff9, "syncword to protection_absent");
        reader.expect(2, 1, "profile");
        reader.expect(4, rate_index, "sampling_frequency_index");
        reader.expect(1, 0, "private_bit");
        reader.expect(3, channels, "channel_configuration");
        reader.expect(1, header.original_copy, "original_copy");
        reader.expect(1, header.home, "home");
        const bool carries_bit = has_id && number < 72;
        reader.expect(1, carries_bit ? id[number / 8] >> (7 - number % 8) & 1u : 0, "copyright_identification_bit");
        reader.expect(1, carries_bit && number == 0 ? 1 : 0, "copyright_identification_start");
        reader.expect(13, 0, "aac_frame_length");
        reader.expect(11, constant_rate == 1 ? header.adts_buffer_fullness : 0x7ff, "adts_buffer_fullness");
        reader.expect(2, 0, "number_of_raw_data_blocks_in_frame");
        outcome.add_output(written(writer));
    }
}

TavikProgramConfig draw_program(InputBytes &input) {
    TavikProgramConfig program{input.below(12), 1 + input.below(15), {}, {}};
    for (std::size_t i = 0; i < program.num_front_channel_elements; ++i) {
        program.front_element_is_cpe[i] = input.below(2);
        program.front_element_tag_select[i] = input.below(16);
    }
    return program;
}

void expect_program(BitReader &reader, const TavikProgramConfig &program) {
    reader.expect(4, 5, "element_instance_tag");
    reader.expect(2, 1, "object_type");
    reader.expect(4, program.sampling_frequency_index, "sampling_frequency_index");
    reader.expect(4, program.num_front_channel_elements, "num_front_channel_elements");
    reader.expect(20, 0, "other elements and mixdown");
    for (std::size_t i = 0; i < program.num_front_channel_elements; ++i) {
        reader.expect(1, program.front_element_is_cpe[i], "front_element_is_cpe");
        reader.expect(4, program.front_element_tag_select[i], "front_element_tag_select");
    }
    reader.expect(static_cast<unsigned>((8 - reader.position() % 8) % 8), 0, "alignment");
    reader.expect(8, 0, "comment_field_bytes");
}

void run_adif_header(InputBytes &input, Outcome &outcome) {
    const TavikProgramConfig program = draw_program(input);
    TavikAdifHeader header{};
    header.copyright_id_present = input.below(2);
    for (auto &byte : header.copyright_id) byte = static_cast<std::uint8_t>(input.below(256));
    header.original_copy = input.below(2);
    header.home = input.below(2);
    header.bitstream_type = input.below(2);
    header.bitrate = low_bits(input.long_word(), 23);
    header.adif_buffer_fullness = low_bits(input.long_word(), 20);
    BitWriter writer = fresh_writer;
    const std::uint32_t bits = TAVIK_WriteADIFHeader(&program, &header, buffer().data(), &writer);
    require(bits == writer.bit_count && bits % 8 == 0, "ADIF header of ", bits, " bits");
    BitReader reader(written(writer));
    reader.expect(32, 0x41444946, "adif_id");
    reader.expect(1, header.copyright_id_present, "copyright_id_present");
    for (std::size_t i = 0; i < 9 * header.copyright_id_present; ++i) reader.expect(8, header.copyright_id[i], "id");
    reader.expect(1, header.original_copy, "original_copy");
    reader.expect(1, header.home, "home");
    reader.expect(1, header.bitstream_type, "bitstream_type");
    reader.expect(23, header.bitrate, "bitrate");
    reader.expect(4, 0, "num_program_config_elements");
    if (header.bitstream_type == 0) reader.expect(20, header.adif_buffer_fullness, "adif_buffer_fullness");
    expect_program(reader, program);
    require(reader.bits_left() == 0, "ADIF header too long");
    outcome.add_output(written(writer));
}

void run_side_info(InputBytes &input, Outcome &outcome) {
    const TavikProgramConfig program = draw_program(input);
    const std::uint32_t sequence = input.below(4), grouping = input.below(128);
    const bool is_short = sequence == 2;
    const std::uint32_t max_sfb = input.below(is_short ? 16 : 52);
    BitWriter writer = fresh_writer;
    require(TAVIK_WritePCE(&program, buffer().data(), &writer) == writer.bit_count, "bits of a PCE");
    const std::uint32_t info_bits = TAVIK_WriteICSInfo(buffer().data(), &writer, max_sfb, sequence, grouping);
    require(info_bits == (is_short ? 15 : 11), "ics_info of ", info_bits, " bits");
    align(writer);
    BitReader reader(written(writer));
    expect_program(reader, program);
    reader.expect(1, 0, "ics_reserved_bit");
    reader.expect(2, sequence, "window_sequence");
    reader.expect(1, 0, "window_shape");
    reader.expect(is_short ? 4 : 6, max_sfb, "max_sfb");
    reader.expect(is_short ? 7 : 1, is_short ? grouping : 0, "grouping or prediction");
    require(reader.bits_left() < 8, "ics_info too long");
    outcome.add_output(written(writer));
}

// Fill elements make a frame of any size the mean size, if the smallest of them still fits.
void run_fill(InputBytes &input, Outcome &outcome) {
    static GuardedArray<EncoderContext> context(1);
    EncoderConfig config{};
    config.channel_mode = input.below(3);
    config.sample_rate = 8000;
    config.constant_rate = 1;
    config.bit_rate = input.between(TAVIK_MIN_BIT_RATE, 6 * config.sample_rate);
    require(TAVIK_Init(context.data(), &config) == 0, "TAVIK_Init");
    const std::uint32_t channels = config.channel_mode == TAVIK_MODE_MONO ? 1 : 2;
    const std::uint32_t mean_bits = config.bit_rate * 1024 / 8000 / 8 * 8 * channels;
    const std::uint32_t used = input.between(0, mean_bits + 16);
    BitWriter writer = fresh_writer;
    const std::uint32_t bits = TAVIK_WriteFIL(context.data(), used, buffer().data(), &writer);
    require(bits == writer.bit_count, "fill of ", bits, " bits, written ", writer.bit_count);
    const std::uint32_t total = used + bits + 3;  // with END
    require(bits == 0 ? total + 7 > mean_bits : (total + 7) / 8 * 8 == mean_bits, "fill of ", bits, " to ", used);
    align(writer);
    BitReader reader(written(writer));
    while (reader.position() < bits) {
        reader.expect(3, 6, "fill element");
        std::uint32_t bytes = reader.read(4);
        if (bytes == 15) bytes += reader.read(8) - 1;
        for (; bytes > 0; --bytes) reader.expect(8, 0, "fill byte");
    }
    require(reader.position() == bits, "fill elements of ", reader.position(), " bits");
    outcome.add_output(written(writer));
}

}  // namespace

const char *const unit_name = "stages run";

Outcome run_target(std::span<const std::uint8_t> bytes) {
    static constexpr void (*stages[])(InputBytes &, Outcome &) = {
        run_bit_writer, run_escape_sequence, run_adts_headers, run_adif_header, run_side_info, run_fill};
    return run_stages(bytes, stages);
}

}  // namespace tavik_fuzz
