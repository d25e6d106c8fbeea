// The strict reader, which many tests rely on, rejects what the encoder must not write.
#include <gtest/gtest.h>

#include "support/stream_harness.h"

namespace tavik_test {
namespace {

using Bytes = std::vector<std::uint8_t>;

EncoderConfig config_of(unsigned channel_mode, unsigned header_type) {
    return {channel_mode, 44100, 64000, header_type, 0, 0, 0, 0, 0, 1, {}};
}

bool is_accepted(const Bytes &bytes, const EncoderConfig &config) {
    try {
        read_frame(bytes, stream_format(config), true);
        return true;
    } catch (const StreamError &) {
        return false;
    }
}

Bytes with_flipped_bit(Bytes frame, std::size_t bit) {
    frame[bit / 8] = static_cast<std::uint8_t>(frame[bit / 8] ^ 0x80 >> bit % 8);
    return frame;
}

// The bits of a silent frame that can be flipped, each on its own, and leave a frame that is accepted.
std::vector<std::size_t> free_bits(unsigned channel_mode, unsigned header_type) {
    const EncoderConfig config = config_of(channel_mode, header_type);
    const Bytes frame = encode_stream(config, std::vector<std::int16_t>(4096)).frames.front();
    std::vector<std::size_t> free;
    for (std::size_t bit = 0; bit < 8 * frame.size(); ++bit) {
        if (is_accepted(with_flipped_bit(frame, bit), config)) free.push_back(bit);
    }
    EXPECT_TRUE(is_accepted(frame, config));
    EXPECT_FALSE(is_accepted(Bytes(frame.begin(), frame.end() - 1), config));
    return free;
}

TEST(StrictReader, RejectsEveryFlippedBitThatIsNotFree) {
    // Copyright identification; global_gain; window_sequence LONG_START for ONLY_LONG.
    using Bits = std::vector<std::size_t>;
    EXPECT_EQ(free_bits(TAVIK_MODE_MONO, TAVIK_HEADER_ADTS), (Bits{28, 29, 63, 64, 65, 66, 67, 68, 69, 70, 73}));
    EXPECT_EQ(free_bits(TAVIK_MODE_MONO, TAVIK_HEADER_ADIF), (Bits{191, 192, 193, 194, 195, 196, 197, 198, 201}));
    EXPECT_EQ(free_bits(TAVIK_MODE_TWO_MONO, TAVIK_HEADER_ADTS),
              (Bits{28, 29, 119, 120, 121, 122, 123, 124, 125, 126, 129, 162, 163, 164, 165, 166, 167, 168, 169, 172}));
}

}  // namespace
}  // namespace tavik_test
