// Whole frames bit by bit: headers, the silent frame, fill elements; and that counted bits are written bits.
#include <gtest/gtest.h>

#include <vector>

#include "common/encoder_context.h"
#include "support/full_count.h"
#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;
using Bytes = std::vector<std::uint8_t>;

EncoderConfig config_of(std::uint32_t mode, std::uint32_t rate, std::uint32_t bit_rate, std::uint32_t header) {
    return {mode, rate, bit_rate, header, 0, 0, 0, 0, 0, 0, {}};
}

TEST(Frame, SilentMonoFrame) {
    const EncodedStream stream =
        encode_stream(config_of(TAVIK_MODE_MONO, 44100, 64000, TAVIK_HEADER_ADTS), std::vector<std::int16_t>(4096));
    ASSERT_EQ(stream.frames.size(), 4u);
    for (const Bytes &frame : stream.frames) {
        EXPECT_EQ(frame, (Bytes{0xFF, 0xF9, 0x50, 0x40, 0x01, 0xBF, 0xFC, 0x00, 0xC8, 0x18, 0x03, 0xF1, 0x1C}));
    }
}

// The reader knows which frame carries which bit.
TEST(Frame, CopyrightIdentifierGoesOutBitByBit) {
    EncoderConfig config = config_of(TAVIK_MODE_TWO_MONO, 48000, 8000, TAVIK_HEADER_ADTS);
    config.copyright_id_present = 1;
    config.home = 1;
    for (std::size_t i = 0; i < 9; ++i) config.copyright_id[i] = static_cast<std::uint8_t>(0x1D * (i + 5));
    EXPECT_NO_THROW(read_stream(config, encode_stream(config, std::vector<std::int16_t>(2 * 1024 * 75))));
}

TEST(Fill, ClosesTheGapToAFewBits) {
    EncoderContext context;
    EncoderConfig config = config_of(TAVIK_MODE_STEREO, 48000, 288000, TAVIK_HEADER_NONE);
    config.constant_rate = 1;
    ASSERT_EQ(TAVIK_Init(&context, &config), 0);
    constexpr std::uint32_t target = 12288;
    constexpr std::uint32_t full = 2167;
    const std::pair<std::uint32_t, std::uint32_t> fills[] = {{0, 0},
                                                             {6, 0},
                                                             {7, 7},
                                                             {14, 7},
                                                             {15, 15},
                                                             {119, 119},
                                                             {130, 127},
                                                             {full + 6, full},
                                                             {full + 7, full + 7},
                                                             {5 * full + 1449, 5 * full + 1447}};
    for (const auto &[gap, bits] : fills) {
        Bytes buffer(TAVIK_MAX_FRAME_BYTES + 8);
        BitWriter writer{0, 0, 0, 8};
        EXPECT_EQ(TAVIK_WriteFIL(&context, target - 3 - gap, buffer.data(), &writer), bits) << "gap " << gap;
        EXPECT_EQ(writer.bit_count, bits);
    }
    BitWriter writer{0, 0, 0, 8};
    Bytes buffer(8);
    EXPECT_EQ(TAVIK_WriteFIL(&context, target + 100, buffer.data(), &writer), 0u);
}

// What a stage function writes, completed to whole bytes.
template <typename Write>
Bytes written(Write write) {
    Bytes buffer(64);
    BitWriter writer{0, 0, 0, 8};
    write(buffer.data(), &writer);
    TAVIK_ByteAlign(buffer.data(), &writer.bits_left, &writer.current_byte, &writer.bit_count, &writer.byte_pos);
    buffer.resize(writer.byte_pos);
    return buffer;
}

TEST(StageFunctions, WriteHeadersAndSideInformation) {
    TavikAdtsHeader adts{};
    adts.adts_buffer_fullness = 0x555;
    const TavikProgramConfig mono{4, 1, {}, {}}, two_channels{4, 2, {}, {0, 1}};
    const TavikAdifHeader adif{0, {}, 0, 0, 1, 264600, 0};  // variable rate
    EXPECT_EQ(written([&](auto *out, auto *writer) { TAVIK_WriteADTSHeader(4, 0, &adts, out, writer, 1); }),
              (Bytes{0xFF, 0xF9, 0x50, 0x40, 0x00, 0x1F, 0xFC}));
    EXPECT_EQ(written([&](auto *out, auto *writer) { TAVIK_WriteADTSHeader(4, 1, &adts, out, writer, 2); }),
              (Bytes{0xFF, 0xF9, 0x50, 0x80, 0x00, 0x15, 0x54}));
    EXPECT_EQ(written([&](auto *out, auto *w) { EXPECT_EQ(TAVIK_WriteADIFHeader(&mono, &adif, out, w), 112u); }),
              (Bytes{'A', 'D', 'I', 'F', 0x10, 0x81, 0x33, 0x00, 0xAA, 0x08, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(written([&](auto *out, auto *writer) { EXPECT_EQ(TAVIK_WritePCE(&two_channels, out, writer), 56u); }),
              (Bytes{0x55, 0x08, 0x00, 0x00, 0x00, 0x10, 0x00}));
    EXPECT_EQ(written([&](auto *out, auto *w) { EXPECT_EQ(TAVIK_WriteICSInfo(out, w, 49, 1, 0), 11u); }),
              (Bytes{0x2C, 0x40}));
    EXPECT_EQ(written([&](auto *out, auto *w) { EXPECT_EQ(TAVIK_WriteICSInfo(out, w, 14, 2, 0x3F), 15u); }),
              (Bytes{0x4E, 0x7E}));
}

// Reads each channel of the frame just coded back from the context, counts it again and compares with the stream.
void expect_counted_is_written(const tavik::EncoderState &state, const Frame &frame) {
    const tavik::CodingBlock &block = state.coding;
    for (tavik::u32 channel = 0; channel < block.num_channels; ++channel) {
        const ChannelStream &written = frame.channels[channel];
        const auto &offsets = block.band_sf_offset[channel];
        EXPECT_EQ(written.global_gain, 100 + block.common_sf[channel] + (block.has_signal[channel] ? offsets[0] : 0));
        if (block.has_signal[channel] == 0) continue;
        std::array<tavik::u8, tavik::band_array_size> codebooks{};
        std::array<tavik::i32, 1024> quantized{};
        const auto bits = tavik_test::full_count(block, block.common_sf[channel],
                                                 {std::span(state.spectrum[channel]).first<1024>(),
                                                  state.pow34_spectrum[channel], offsets, codebooks, quantized},
                                                 channel);
        EXPECT_EQ(bits, written.section_bits + written.scale_factor_bits + written.spectral_bits);
        for (std::size_t k = 0; k < 1024; ++k) {
            const int sign = state.spectrum[channel][k] < 0 ? -1 : 1;
            ASSERT_EQ(written.quantized[k], sign * std::abs(quantized[k])) << "line " << k;
        }
        for (std::size_t g = 0; g < written.codebook.size(); ++g) {
            for (std::size_t b = 0; b < written.codebook[g].size(); ++b) {
                ASSERT_EQ(written.codebook[g][b], codebooks[g * tavik::max_bands + b]);
                if (written.codebook[g][b] == 0) continue;
                ASSERT_EQ(written.scale_factor[g][b],
                          static_cast<int>(100 + block.common_sf[channel] + offsets[g * tavik::max_bands + b]));
            }
        }
    }
}

TEST(Frame, CountedBitsAreWrittenBits) {
    for (const SignalKind kind : all_signal_kinds) {
        for (const std::uint32_t bit_rate : {16000u, 64000u, 264600u}) {
            const EncoderConfig config = config_of(TAVIK_MODE_STEREO, 44100, bit_rate, TAVIK_HEADER_ADTS);
            const auto pcm = make_signal(kind, 2, 10 * 1024, 44100, 9);
            EncoderContext context;
            ASSERT_EQ(TAVIK_Init(&context, &config), 0);
            for (std::size_t f = 0; f < 10; ++f) {
                Bytes output(TAVIK_MAX_FRAME_BYTES);
                std::uint32_t count = 1024, bytes = 0;
                TAVIK_Encode(&context, &pcm[2048 * f], &count, output.data(), &bytes);
                if (bytes == 0) continue;
                output.resize(bytes);
                SCOPED_TRACE(testing::Message() << name(kind) << ' ' << bit_rate << " frame " << f);
                expect_counted_is_written(tavik::state_of(context), read_frame(output, stream_format(config), f == 2));
            }
        }
    }
}

}  // namespace
