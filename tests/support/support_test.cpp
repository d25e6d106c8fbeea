// Tests of the test support: SHA-256 and the strict reader.
#include <gtest/gtest.h>

#include <bitset>

#include "support/sha256.h"
#include "support/signals.h"
#include "support/standard_tables.h"
#include "support/stream_harness.h"

namespace tavik_test {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(Sha256, GivesPublishedDigests) {
    const std::string text = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ(sha256_hex(Bytes(text.begin(), text.end())),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(sha256_hex(Bytes(1'000'000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(HuffmanCode, AcceptsCompletePrefixCodesOnly) {
    EXPECT_NO_THROW(HuffmanCode({{1, 0}, {2, 2}, {2, 3}}));
    EXPECT_THROW(HuffmanCode({{1, 0}, {2, 2}}), std::runtime_error);                  // incomplete
    EXPECT_THROW(HuffmanCode({{1, 0}, {2, 3}}), std::runtime_error);                  // incomplete in the middle
    EXPECT_THROW(HuffmanCode({{1, 0}, {1, 1}, {2, 3}}), std::runtime_error);          // codeword behind a codeword
    EXPECT_THROW(HuffmanCode({{1, 0}, {2, 2}, {2, 3}, {2, 3}}), std::runtime_error);  // twice
    EXPECT_THROW(HuffmanCode({{1, 0}, {1, 2}}), std::runtime_error);                  // too long for its length
}

// ---- Silent and damaged frames ----

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

// Damaged frames must end in a StreamError or in another valid reading; sanitizers watch.
TEST(StrictReader, SurvivesDamagedFrames) {
    const EncoderConfig config = config_of(TAVIK_MODE_STEREO, TAVIK_HEADER_NONE);
    const auto pcm = make_signal(SignalKind::transients, 2, 100 * 1024, 44100, 3);
    unsigned damaged = 0, rejected = 0;
    for (Bytes frame : encode_stream(config, pcm).frames) {
        for (std::size_t bit = damaged % 8; bit < 8 * frame.size(); bit += 61, ++damaged) {
            frame = with_flipped_bit(frame, bit);
            if (!is_accepted(frame, config)) ++rejected;
        }
    }
    EXPECT_GT(rejected, damaged / 2);
}

// ---- Hand-made blocks ----

// Bits as text; spaces separate fields.
Bytes bytes_of(std::string text) {
    std::erase(text, ' ');
    text.resize((text.size() + 7) / 8 * 8, '0');
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 8) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 8), nullptr, 2)));
    }
    return bytes;
}

std::string bits(std::uint32_t value, unsigned count) { return std::bitset<32>(value).to_string().substr(32 - count); }

std::string bits_of(unsigned codebook, std::size_t index) {
    const auto [length, codeword] = standard_tables().code(codebook).codewords()[index];
    return bits(codeword, length);
}

// One band of codebook 11 with an escape prefix of so many ones and scale factor global_gain + difference.
std::string escape_block(unsigned prefix_ones, unsigned global_gain, int difference) {
    return "000 0000" + bits(global_gain, 8) + "0 00 0 000001 0 1011 00001" +
           bits_of(scale_factor_codebook, static_cast<std::size_t>(60 + difference)) + "0 0 0" +
           bits_of(escape_codebook, 16 * 17) + "1" + std::string(prefix_ones, '1') + "0" +
           std::string(prefix_ones + 4, '0') + bits_of(escape_codebook, 0) + "111";
}

TEST(StrictReader, KeepsToTheSyntax) {
    const std::string one_long = "000 0000 01100100 0 00 0 ", eight_short = "000 0000 01100100 0 10 0 ";
    const std::string tns = one_long + "000000 0 0 1 ", coefs(48, '1'), end = " 0 0 0 111";
    const std::string no_bands = " 01100100 0 00 0 000000 0 0 0 0 ";
    const std::string single0 = "000 0000" + no_bands, single1 = "000 0001" + no_bands, fill = "110 0000 ";
    const std::string pair = "001 0000 1 0 00 0 000000 0 ", two_channels = " 01100100 0 0 0 01100100 0 0 0 111";
    struct Case {
        bool is_valid;
        std::string block;
        unsigned channel_mode = TAVIK_MODE_MONO;
    };
    const Case cases[] = {
        // Bands and sections.
        {true, one_long + "110001 0 0000 11111 10010" + end},
        {false, one_long + "110010 0 0000 11111 10011" + end},       // more bands than the rate has
        {false, one_long + "000100 0 0000 00010 0000 00010" + end},  // sections not merged
        {false, one_long + "000100 0 0001 00000 0000 00100" + end},  // empty section
        {true, one_long + "011111 0 0000 11111 00000" + end},        // a length of one field continues with 0
        {false, one_long + "000100 0 1100 00100" + end},             // codebooks 12 and 15
        {false, one_long + "000100 0 1111 00100" + end},
        {true, eight_short + "1110 1111011 0000 111 111 000 0000 111 111 000" + end},
        {false, eight_short + "1111 1111111 0000 111 111 001" + end},  // more bands than the rate has
        // Scale factors 0 to 255; magnitudes to 8191.
        {true, escape_block(8, 60, -60)},
        {true, escape_block(8, 254, 1)},
        {false, escape_block(0, 59, -60)},
        {false, escape_block(0, 255, 1)},
        {false, escape_block(9, 100, 0)},
        // TNS.
        {true, tns + "01 1 110001 01100 0 0" + coefs + "0 111"},
        {false, tns + "01 1 110010 01100 0 0" + coefs + "0 111"},           // more bands than the rate has
        {false, tns + "01 1 110001 01101 0 0" + coefs + "1111 0 111"},      // order 13
        {false, tns + "10 1 110001 01100 0 0" + coefs + "0 111"},           // two filters
        {false, eight_short + "0000 0000000 0 1 01 1 000001 00000 0 111"},  // short windows
        // Mid/side masks.
        {true, pair + "10" + two_channels, TAVIK_MODE_STEREO},
        {false, pair + "11" + two_channels, TAVIK_MODE_STEREO},
        // Elements and their order.
        {true, single0 + "110 1111 11111111" + std::string(8 * 269, '0') + "110 0001 00000000" + fill + "111"},
        {false, single0 + "110 0001 00000001 111"},  // fill payload
        {false, single0 + "111 00000000"},           // a byte behind the block
        {true, single0 + single1 + fill + "111", TAVIK_MODE_TWO_MONO},
        {false, single0 + "111", TAVIK_MODE_TWO_MONO},
        {false, single0 + single0 + "111", TAVIK_MODE_TWO_MONO},
        {false, single0 + single1 + single1 + "111", TAVIK_MODE_TWO_MONO},
        {false, single0 + fill + single1 + "111", TAVIK_MODE_TWO_MONO},
    };
    for (const auto &[is_valid, block, channel_mode] : cases) {
        EXPECT_EQ(is_accepted(bytes_of(block), config_of(channel_mode, TAVIK_HEADER_NONE)), is_valid) << block;
    }
}

}  // namespace
}  // namespace tavik_test
