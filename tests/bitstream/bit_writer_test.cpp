// Bit writer through the public functions, read back bit by bit.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "support/bit_reader.h"
#include "tavik.h"

namespace {

struct Output {
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(1 << 16, 0xA5);
    BitWriter writer{0, 0, 0, 8};

    void put(std::uint32_t value, std::int32_t nbits) {
        TAVIK_ZOLF_PutBit(buffer.data(), &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos,
                          value, nbits);
    }
    std::uint32_t align() {
        return TAVIK_ByteAlign(buffer.data(), &writer.bits_left, &writer.current_byte, &writer.bit_count,
                               &writer.byte_pos);
    }
};

TEST(BitWriter, StoresBytesWhenTheyAreComplete) {
    Output out;
    out.put(0xFFF, 12);
    out.put(1, 1);
    out.put(0, 2);
    out.put(0, 0);
    EXPECT_EQ(out.writer.bit_count, 15u);
    EXPECT_EQ(out.writer.current_byte, 0xF8u);
    EXPECT_EQ(out.writer.bits_left, 1u);
    EXPECT_EQ(out.buffer[0], 0xFF);
    EXPECT_EQ(out.buffer[1], 0xA5) << "stored too early";
    EXPECT_EQ(out.align(), 1u);
    EXPECT_EQ(out.align(), 0u);
    EXPECT_EQ(out.writer.byte_pos, 2u);
    out.put(0, 2040);
    EXPECT_EQ(out.writer.byte_pos, 2u + 255);
    EXPECT_EQ(out.buffer[256], 0);
    EXPECT_EQ(out.buffer[257], 0xA5);
}

TEST(BitWriter, RandomFieldsReadBack) {
    std::mt19937 random(8);
    Output out;
    std::vector<std::pair<std::uint32_t, unsigned>> fields;
    while (out.writer.bit_count < 500000) {
        const unsigned nbits = 1 + random() % 32;
        const auto value = static_cast<std::uint32_t>(random() & ((std::uint64_t{1} << nbits) - 1));
        fields.emplace_back(value, nbits);
        out.put(value, static_cast<std::int32_t>(nbits));
        ASSERT_EQ(out.writer.bit_count, 8 * out.writer.byte_pos + 8 - out.writer.bits_left);
    }
    out.align();
    tavik_test::BitReader reader(out.buffer);
    for (const auto &[value, nbits] : fields) ASSERT_EQ(reader.read(nbits), value);
}

TEST(PutBitOffset, SetsOnlyTheAddressedBits) {
    std::vector<std::uint8_t> buffer(8);
    TAVIK_ZOLF_PutBit_Offset(buffer.data(), 0x1FFF, 13, 30);
    EXPECT_EQ(buffer, (std::vector<std::uint8_t>{0, 0, 0, 3, 0xFF, 0xE0, 0, 0}));
    TAVIK_ZOLF_PutBit_Offset(buffer.data(), 0x80000001, 32, 1);
    EXPECT_EQ(buffer, (std::vector<std::uint8_t>{0x40, 0, 0, 3, 0xFF, 0xE0, 0, 0})) << "bit 32 is set already";
}

}  // namespace
