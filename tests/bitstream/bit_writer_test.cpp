// Bit writer through the public functions.
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

// Fields of any width, then bits set in the middle of them.
TEST(BitWriter, RandomFieldsReadBack) {
    std::mt19937 random(8);
    const auto field = [&](unsigned nbits) { return static_cast<std::uint32_t>(random() & ((1ull << nbits) - 1)); };
    Output out;
    std::vector<std::pair<std::uint32_t, unsigned>> fields;
    while (out.writer.bit_count < 100000) {
        const unsigned nbits = 1 + random() % 32;
        fields.emplace_back(field(nbits), nbits);
        out.put(fields.back().first, static_cast<std::int32_t>(nbits));
        ASSERT_EQ(out.writer.bit_count, 8 * out.writer.byte_pos + 8 - out.writer.bits_left);
    }
    out.align();
    std::uint32_t offset = 0;
    for (auto &[value, nbits] : fields) {
        const std::uint32_t more = field(nbits);
        TAVIK_ZOLF_PutBit_Offset(out.buffer.data(), more, static_cast<std::int32_t>(nbits), offset);
        value |= more;
        offset += nbits;
    }
    tavik_test::BitReader reader(out.buffer);
    for (const auto &[value, nbits] : fields) ASSERT_EQ(reader.read(nbits), value);
}

}  // namespace
