// Tests of the test support: SHA-256 and the strict reader.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/sha256.h"
#include "support/signals.h"
#include "support/standard_tables.h"
#include "support/stream_harness.h"

namespace tavik_test {
namespace {

using Bytes = std::vector<std::uint8_t>;

// ---- SHA-256 ----

Bytes bytes_of(const std::string &text) { return Bytes(text.begin(), text.end()); }

TEST(Sha256, GivesPublishedDigests) {
    EXPECT_EQ(sha256_hex({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256_hex(bytes_of("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256_hex(bytes_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(sha256_hex(Bytes(1'000'000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// ---- Tables ----

TEST(HuffmanCode, AcceptsCompletePrefixCodesOnly) {
    EXPECT_NO_THROW(HuffmanCode({{1, 0}, {2, 2}, {2, 3}}));
    EXPECT_THROW(HuffmanCode({{1, 0}, {2, 2}}), std::runtime_error);                  // incomplete
    EXPECT_THROW(HuffmanCode({{1, 0}, {1, 1}, {2, 3}}), std::runtime_error);          // codeword behind a codeword
    EXPECT_THROW(HuffmanCode({{2, 3}, {1, 0}, {1, 1}}), std::runtime_error);          // codeword before a codeword
    EXPECT_THROW(HuffmanCode({{1, 0}, {2, 2}, {2, 3}, {2, 3}}), std::runtime_error);  // twice
    EXPECT_THROW(HuffmanCode({{1, 0}, {1, 2}}), std::runtime_error);                  // too long for its length
}

// ---- Writing streams ----

class BitPacker {
 public:
    BitPacker &put(std::uint32_t value, unsigned count) {
        while (count-- > 0) put_bit(value >> count & 1u);
        return *this;
    }

    BitPacker &put(const Codeword &codeword) { return put(codeword.bits, codeword.length); }

    // Bits as text; spaces separate fields.
    BitPacker &put(std::string_view text) {
        for (const char letter : text) {
            if (letter != ' ') put_bit(letter == '1' ? 1 : 0);
        }
        return *this;
    }

    unsigned bits() const { return bits_; }
    const Bytes &bytes() const { return bytes_; }

 private:
    void put_bit(unsigned bit) {
        if (bits_ % 8 == 0) bytes_.push_back(0);
        bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | bit << (7 - bits_ % 8));
        ++bits_;
    }

    Bytes bytes_;
    unsigned bits_ = 0;
};

constexpr unsigned index_44100 = 4;
constexpr StreamFormat raw_mono = {Framing::raw, ChannelMode::mono, index_44100};
constexpr StreamFormat adts_mono = {Framing::adts, ChannelMode::mono, index_44100};

// The stream of a channel without any coded band.
void put_empty_channel(BitPacker &packer, bool has_ics_info) {
    packer.put("01100100");  // global_gain 100
    if (has_ics_info) packer.put("0 00 0 000000 0");
    packer.put("0 0 0");  // pulse_data, tns_data, gain_control_data
}

void put_program_config(BitPacker &packer, const std::vector<ChannelElement> &elements) {
    packer.put("0101 01").put(index_44100, 4).put(static_cast<std::uint32_t>(elements.size()), 4);
    packer.put("0000 0000 00 000 0000 0 0 0");
    for (const auto &[is_pair, tag] : elements) packer.put(is_pair ? 1 : 0, 1).put(tag, 4);
    packer.put(0, (8 - packer.bits() % 8) % 8).put(0, 8);
}

void put_adts_header(BitPacker &packer, unsigned channel_configuration, unsigned frame_length) {
    packer.put("111111111111 1 00 1 01").put(index_44100, 4).put(0, 1).put(channel_configuration, 3);
    packer.put("0 0 0 0").put(frame_length, 13).put("11111111111 00");
}

// ---- Reader ----

const Bytes silent_frame = {0xff, 0xf9, 0x50, 0x40, 0x01, 0xbf, 0xfc, 0x00, 0xc8, 0x18, 0x03, 0xf1, 0x1c};

bool is_accepted(const Bytes &bytes, const StreamFormat &format) {
    try {
        read_frame(bytes, format, true);
        return true;
    } catch (const StreamError &) {
        return false;
    }
}

TEST(StrictReader, ReadsSilentFrame) {
    const Frame frame = read_frame(silent_frame, adts_mono, true);
    ASSERT_TRUE(frame.adts);
    EXPECT_EQ(frame.adts->id, 1u);
    EXPECT_EQ(frame.adts->frame_length, 13u);
    EXPECT_EQ(frame.adts->buffer_fullness, 0x7ffu);
    EXPECT_EQ(frame.header_bits, 56u);
    EXPECT_EQ(frame.total_bits, 48u);
    ASSERT_EQ(frame.channels.size(), 1u);
    const ChannelStream &channel = frame.channels[0];
    EXPECT_EQ(channel.global_gain, 100u);
    EXPECT_EQ(channel.ics.max_sfb, 48u);
    EXPECT_EQ(channel.codebook, std::vector(1, std::vector(48, 0u)));
    EXPECT_EQ(channel.scale_factor, std::vector(1, std::vector(48, no_scale_factor)));
    EXPECT_EQ(channel.quantized, std::vector(1024, 0));
    EXPECT_EQ(channel.section_bits, 14u);
    EXPECT_EQ(channel.total_bits, 36u);
}

// The bits that can be flipped, each on its own, and leave a frame that is accepted.
std::set<std::size_t> free_bits(const Bytes &frame, const StreamFormat &format) {
    std::set<std::size_t> free;
    for (std::size_t bit = 0; bit < 8 * frame.size(); ++bit) {
        Bytes mutant = frame;
        mutant[bit / 8] = static_cast<std::uint8_t>(mutant[bit / 8] ^ 0x80 >> bit % 8);
        if (is_accepted(mutant, format)) free.insert(bit);
    }
    return free;
}

// A set of ranges, each from its first number to its last.
std::set<std::size_t> ranges(const std::vector<std::pair<std::size_t, std::size_t>> &list) {
    std::set<std::size_t> numbers;
    for (const auto &[first, last] : list) {
        for (std::size_t number = first; number <= last; ++number) numbers.insert(number);
    }
    return numbers;
}

TEST(StrictReader, RejectsEveryFlippedBitThatIsNotFree) {
    // ID; original, home and copyright; buffer fullness; global_gain; window_sequence LONG_START for ONLY_LONG.
    EXPECT_EQ(free_bits(silent_frame, adts_mono), ranges({{12, 12}, {26, 29}, {43, 53}, {63, 70}, {73, 73}}));
}

TEST(StrictReader, RejectsWrongLengthAndFormat) {
    Bytes longer = silent_frame;
    longer.push_back(0);
    EXPECT_FALSE(is_accepted(longer, adts_mono));
    EXPECT_FALSE(is_accepted({silent_frame.begin(), silent_frame.end() - 1}, adts_mono));
    EXPECT_FALSE(is_accepted({}, adts_mono));
    const Bytes block(silent_frame.begin() + 7, silent_frame.end());
    EXPECT_TRUE(is_accepted(block, raw_mono));
    longer.erase(longer.begin(), longer.begin() + 7);
    EXPECT_FALSE(is_accepted(longer, raw_mono));
    EXPECT_FALSE(is_accepted(silent_frame, {Framing::adts, ChannelMode::mono, 3}));
    EXPECT_FALSE(is_accepted(silent_frame, {Framing::adts, ChannelMode::stereo, index_44100}));
    EXPECT_FALSE(is_accepted(block, {Framing::raw, ChannelMode::two_mono, index_44100}));
}

// Damaged frames must end in a StreamError or in another valid reading; sanitizers watch.
TEST(StrictReader, SurvivesDamagedFrames) {
    const EncoderConfig config{TAVIK_MODE_STEREO, 44100, 64000, TAVIK_HEADER_NONE, 0, 0, 0, 0, 0, 0, {}};
    const auto pcm = make_signal(SignalKind::transients, 2, 100 * 1024, 44100, 3);
    unsigned damaged = 0, rejected = 0;
    for (Bytes frame : encode_stream(config, pcm).frames) {
        for (std::size_t bit = damaged % 8; bit < 8 * frame.size(); bit += 61, ++damaged) {
            frame[bit / 8] = static_cast<std::uint8_t>(frame[bit / 8] ^ 0x80 >> bit % 8);
            if (!is_accepted(frame, stream_format(config))) ++rejected;
        }
    }
    EXPECT_GT(rejected, damaged / 2);
}

constexpr std::string_view gain = "01100100";

// Whether a mono block is accepted: element identifier and tag, the given individual_channel_stream, END.
bool accepts_stream(const std::string &stream) {
    return is_accepted(BitPacker().put("000 0000").put(stream).put("111").bytes(), raw_mono);
}

TEST(StrictReader, ChecksIcsInfoAndSections) {
    const auto accepts_long = [](const std::string &max_sfb_to_sections) {
        return accepts_stream(std::string(gain) + "0 00 0" + max_sfb_to_sections + "0 0 0");
    };
    EXPECT_TRUE(accepts_long("110001 0  0000 11111 10010"));
    EXPECT_FALSE(accepts_long("110010 0  0000 11111 10011"));       // more bands than the rate has
    EXPECT_FALSE(accepts_long("000100 1  0000 00100"));             // prediction
    EXPECT_FALSE(accepts_long("000100 0  0000 00101"));             // section beyond max_sfb
    EXPECT_FALSE(accepts_long("000100 0  0000 00010 0000 00010"));  // sections not merged
    EXPECT_FALSE(accepts_long("000100 0  0001 00000 0000 00100"));  // empty section
    EXPECT_TRUE(accepts_long("011111 0  0000 11111 00000"));        // length that is a multiple of the escape
    for (const char *codebook : {"1100", "1101", "1110", "1111"}) {
        EXPECT_FALSE(accepts_long("000100 0" + std::string(codebook) + "00100")) << codebook;
    }
    const auto accepts_short = [](const std::string &max_sfb_to_sections) {
        return accepts_stream(std::string(gain) + "0 10 0" + max_sfb_to_sections + "0 0 0");
    };
    EXPECT_TRUE(accepts_short("1110 1111011  0000 111 111 000  0000 111 111 000"));
    EXPECT_FALSE(accepts_short("1111 1111111  0000 111 111 001"));  // more bands than the rate has
}

// One band of codebook 11 holding (value, 0, 0, 0), with the scale-factor difference and escape prefix as given.
Bytes escape_block(unsigned global_gain, std::size_t difference_index, unsigned prefix_ones) {
    const auto &spectral = standard_tables().code(escape_codebook).codewords();
    BitPacker packer;
    packer.put("000 0000").put(global_gain, 8).put("0 00 0 000001 0").put("1011 00001");
    packer.put(standard_tables().code(scale_factor_codebook).codewords()[difference_index]).put("0 0 0");
    packer.put(spectral[16 * 17]).put("1").put((1u << prefix_ones) - 1, prefix_ones).put("0").put(0, prefix_ones + 4);
    packer.put(spectral[0]).put("111");
    return packer.bytes();
}

TEST(StrictReader, ChecksScaleFactorsAndEscapes) {
    EXPECT_EQ(read_frame(escape_block(100, 60, 0), raw_mono, true).channels[0].quantized[0], -16);
    EXPECT_EQ(read_frame(escape_block(100, 60, 8), raw_mono, true).channels[0].quantized[0], -4096);
    EXPECT_FALSE(is_accepted(escape_block(100, 60, 9), raw_mono));
    EXPECT_EQ(read_frame(escape_block(255, 0, 0), raw_mono, true).channels[0].scale_factor[0][0], 195);
    EXPECT_EQ(read_frame(escape_block(60, 0, 0), raw_mono, true).channels[0].scale_factor[0][0], 0);
    EXPECT_FALSE(is_accepted(escape_block(59, 0, 0), raw_mono));
    EXPECT_EQ(read_frame(escape_block(254, 61, 0), raw_mono, true).channels[0].scale_factor[0][0], 255);
    EXPECT_FALSE(is_accepted(escape_block(255, 61, 0), raw_mono));
}

TEST(StrictReader, ChecksTns) {
    const auto accepts_filter = [](const std::string &n_filt, const std::string &length, const std::string &order,
                                   std::size_t coefficients) {
        return accepts_stream(std::string(gain) + "0 00 0 000000 0  0 1" + n_filt + "1" + length + order + "0 0" +
                              std::string(4 * coefficients, '1') + "0");
    };
    EXPECT_TRUE(accepts_filter("01", "110001", "01100", 12));
    EXPECT_FALSE(accepts_filter("01", "110010", "01100", 12));
    EXPECT_FALSE(accepts_filter("01", "110001", "01101", 13));
    EXPECT_FALSE(accepts_filter("10", "110001", "01100", 12));
    EXPECT_FALSE(accepts_stream(std::string(gain) + "0 00 0 000000 0  0 1 00 0"));                     // no filter
    EXPECT_FALSE(accepts_stream(std::string(gain) + "0 10 0 0000 0000000  0 1 01 1 000001 00000 0"));  // short windows
}

TEST(StrictReader, ChecksMidSideMask) {
    constexpr StreamFormat raw_stereo = {Framing::raw, ChannelMode::stereo, index_44100};
    const auto pair = [](std::uint32_t ms_mask_present) {
        BitPacker packer;
        packer.put("001 0000 1  0 00 0 000000 0").put(ms_mask_present, 2);
        for (int channel = 0; channel < 2; ++channel) put_empty_channel(packer, false);
        packer.put("111");
        return packer.bytes();
    };
    for (std::uint32_t mask = 0; mask < 3; ++mask) {
        const Frame frame = read_frame(pair(mask), raw_stereo, true);
        EXPECT_TRUE(frame.common_window);
        EXPECT_EQ(frame.ms_mask_present, mask);
    }
    EXPECT_FALSE(is_accepted(pair(3), raw_stereo));
}

TEST(StrictReader, CountsFillElements) {
    const auto block = [](std::uint32_t payload_bit) {
        BitPacker packer;
        packer.put("000 0000");
        put_empty_channel(packer, true);
        packer.put("110 1111 11111111");  // 15 + 255 - 1 bytes
        for (int byte = 0; byte < 268; ++byte) packer.put(0, 8);
        packer.put(payload_bit, 8).put("110 0000  110 0001 00000000  111");
        return packer.bytes();
    };
    const Frame frame = read_frame(block(0), raw_mono, true);
    EXPECT_EQ(frame.fill_elements, 3u);
    EXPECT_EQ(frame.fill_bits, 15u + 8 * 269 + 7 + 15);
    EXPECT_FALSE(is_accepted(block(1), raw_mono));
}

// An ADTS frame of the given elements: P = program config, F = empty fill, a digit = single channel with that tag.
Bytes frame_of_elements(std::string_view elements, const std::vector<ChannelElement> &declared) {
    const auto write = [&](unsigned frame_length) {
        BitPacker packer;
        put_adts_header(packer, 0, frame_length);
        for (const char element : elements) {
            if (element == 'P') {
                packer.put("101");
                put_program_config(packer, declared);
            } else if (element == 'F') {
                packer.put("110 0000");
            } else {
                packer.put("000").put(static_cast<std::uint32_t>(element - '0'), 4);
                put_empty_channel(packer, true);
            }
        }
        packer.put("111");
        return packer.bytes();
    };
    return write(static_cast<unsigned>(write(0).size()));
}

TEST(StrictReader, ChecksElements) {
    constexpr StreamFormat two_mono = {Framing::adts, ChannelMode::two_mono, index_44100};
    const std::vector<ChannelElement> two_singles = {{false, 0}, {false, 1}};
    const Frame frame = read_frame(frame_of_elements("P01FF", two_singles), two_mono, true);
    ASSERT_TRUE(frame.pce_in_block);
    EXPECT_EQ(frame.pce_in_block->tag, 5u);
    EXPECT_EQ(frame.pce_in_block->front_elements, two_singles);
    EXPECT_EQ(frame.elements, two_singles);
    EXPECT_EQ(frame.channels.size(), 2u);
    EXPECT_EQ(frame.fill_elements, 2u);
    for (const char *elements : {"01", "P0", "P00", "P10", "P012", "0P1", "PP01", "FP01", "PF01", "P0F1", "P01P"}) {
        EXPECT_FALSE(is_accepted(frame_of_elements(elements, two_singles), two_mono)) << elements;
    }
    EXPECT_FALSE(is_accepted(frame_of_elements("P01", {{false, 0}}), two_mono));
    EXPECT_FALSE(is_accepted(frame_of_elements("P01", {{true, 0}}), two_mono));
}

Bytes adif_frame(unsigned bitstream_type, bool has_copyright_id, unsigned program_configs) {
    BitPacker packer;
    for (const char letter : {'A', 'D', 'I', 'F'}) packer.put(static_cast<std::uint8_t>(letter), 8);
    packer.put(has_copyright_id ? 1 : 0, 1);
    for (std::uint32_t byte = 0; byte < 9 && has_copyright_id; ++byte) packer.put(0xa0 + byte, 8);
    packer.put("1 0").put(bitstream_type, 1).put(128'000, 23).put(program_configs - 1, 4);
    if (bitstream_type == 0) packer.put(777, 20);
    put_program_config(packer, {{false, 0}});
    packer.put("000 0000");
    put_empty_channel(packer, true);
    packer.put("111");
    return packer.bytes();
}

TEST(StrictReader, ReadsAdif) {
    constexpr StreamFormat adif_mono = {Framing::adif, ChannelMode::mono, index_44100};
    const Frame constant = read_frame(adif_frame(0, true, 1), adif_mono, true);
    ASSERT_TRUE(constant.adif && constant.adif->copyright_id);
    EXPECT_EQ((*constant.adif->copyright_id)[8], 0xa8);
    EXPECT_EQ(constant.adif->original_copy, 1u);
    EXPECT_EQ(constant.adif->home, 0u);
    EXPECT_EQ(constant.adif->bitrate, 128'000u);
    EXPECT_EQ(constant.adif->buffer_fullness, 777u);
    const Frame variable = read_frame(adif_frame(1, false, 1), adif_mono, true);
    EXPECT_FALSE(variable.adif->buffer_fullness || variable.adif->copyright_id);
    // original and home; bitrate; tag of the program config; global_gain; window_sequence LONG_START for ONLY_LONG.
    EXPECT_EQ(free_bits(adif_frame(1, false, 1), adif_mono),
              ranges({{33, 34}, {36, 58}, {63, 66}, {119, 126}, {129, 129}}));
    EXPECT_FALSE(is_accepted(adif_frame(1, false, 2), adif_mono));
    EXPECT_THROW(read_frame(adif_frame(1, false, 1), adif_mono, false), StreamError);
}

}  // namespace
}  // namespace tavik_test
