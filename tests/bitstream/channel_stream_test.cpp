// The individual channel stream field by field, from hand-made channels.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "common/encoder_context.h"
#include "support/bit_reader.h"

namespace {

using namespace tavik;

struct Channel {
    TavikCodingBlock block{};
    std::array<u32, band_array_size> codebooks{}, offsets{};
    std::array<i32, 1024> quantized{}, spectrum{};
    std::vector<u8> buffer = std::vector<u8>(4096);
    u32 bits = 0;  // of what has been written

    // Bands of 4 lines; under a common window, so that no ics_info comes between.
    explicit Channel(u32 bands) {
        block.common_window = 1;
        block.max_sfb[0] = bands;
        block.num_window_groups[0] = 1;
        block.window_group_length[0] = {1, 0, 0};
        for (u32 b = 0; b <= bands; ++b) block.sfb_offset[0][b] = 4 * b;
    }
    tavik_test::BitReader write() {
        BitWriter writer{0, 0, 0, 8};
        bits = TAVIK_WriteICS(&block, 100, codebooks.data(), offsets.data(), quantized.data(), spectrum.data(),
                              buffer.data(), &writer, 0, 0);
        EXPECT_EQ(bits, writer.bit_count);
        TAVIK_ByteAlign(buffer.data(), &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos);
        tavik_test::BitReader reader({buffer.data(), writer.byte_pos});
        EXPECT_EQ(reader.read(8), 100u) << "global_gain";
        return reader;
    }
};

void expect_fields(tavik_test::BitReader &reader, const std::vector<std::pair<u32, u32>> &fields) {
    for (const auto &[width, value] : fields) EXPECT_EQ(reader.read(width), value);
}

TEST(WriteIcs, SilentChannelWithItsOwnWindow) {
    Channel channel(49);
    channel.block.common_window = 0;
    auto reader = channel.write();
    expect_fields(reader, {{1, 0}, {2, 0}, {1, 0}, {6, 49}, {1, 0}, {4, 0}, {5, 31}, {5, 18}, {3, 0}});
    EXPECT_EQ(channel.bits, 36u);
}

TEST(WriteIcs, SectionLengthsOfExactlyOneFieldContinueWithZero) {
    Channel long_block(31);
    auto reader = long_block.write();
    expect_fields(reader, {{4, 0}, {5, 31}, {5, 0}, {3, 0}});
    Channel eight_short(7);
    eight_short.block.window_sequence[0] = WindowSequence::eight_short;
    reader = eight_short.write();
    expect_fields(reader, {{4, 0}, {3, 7}, {3, 0}, {3, 0}});
}

TEST(WriteIcs, ScaleFactorReferenceIsBandZeroEvenWhenItIsNotCoded) {
    Channel channel(3);
    channel.codebooks[2] = 4;
    channel.offsets = {5, 7, 9};
    auto reader = channel.write();
    expect_fields(reader, {{4, 0}, {5, 2}, {4, 4}, {5, 1}});
    EXPECT_EQ(reader.read(TAVIK_ZOLF_huff120[64]), TAVIK_ZOLF_huff121[64]);
    expect_fields(reader, {{3, 0}, {TAVIK_ZOLF_huff40[0], TAVIK_ZOLF_huff41[0]}});  // flags; four zeros
}

TEST(WriteIcs, EscapesFollowTheSigns) {
    Channel channel(1);
    channel.codebooks[0] = 11;
    channel.quantized = {20, 3, 8191, 32};
    channel.spectrum = {-1, 1, 1, -1};
    auto reader = channel.write();
    expect_fields(reader, {{9, 11 << 5 | 1}, {1, 0}, {3, 0}});
    EXPECT_EQ(reader.read(TAVIK_ZOLF_huff110[275]), TAVIK_ZOLF_huff111[275]);
    expect_fields(reader, {{2, 2}, {5, 4}});
    EXPECT_EQ(reader.read(TAVIK_ZOLF_huff110[288]), TAVIK_ZOLF_huff111[288]);
    expect_fields(reader, {{2, 1}, {8, 0xFF}, {1, 0}, {12, 4095}, {7, 0b1000000}});
    std::uint32_t length = 0;
    EXPECT_EQ(TAVIK_CalculateEscSequence(-20, &length), 4u);
    EXPECT_EQ(length, 5u);
}

TEST(WriteIcs, NoiseShapingData) {
    Channel channel(1);
    channel.block.tns_data[0] = {1, 25, 3, 1, {-1, 2, -4}};
    auto reader = channel.write();
    expect_fields(reader, {{4, 0},
                           {5, 1},
                           {1, 0},
                           {1, 1},  // section, pulse_data_present, tns_data_present
                           {2, 1},
                           {1, 1},
                           {6, 25},
                           {5, 3},
                           {1, 0},
                           {1, 1},
                           {3, 7},
                           {3, 2},
                           {3, 4},
                           {1, 0}});
    channel.block.tns_data[0].order = 0;
    reader = channel.write();
    expect_fields(reader, {{4, 0}, {5, 1}, {1, 0}, {1, 1}, {2, 1}, {1, 1}, {6, 25}, {5, 0}, {1, 0}});
    EXPECT_EQ(channel.bits, 8u + 9 + 2 + 14 + 1);
}

}  // namespace
