// Validation and derived values.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "common/encoder_context.h"

namespace {

using namespace tavik;

constexpr u32 bad = 0xFFFFFFFF;

EncoderConfig valid_config() { return {TAVIK_MODE_MONO, 44100, 128000, 0, 0, 0, 0, 0, 0, 0, {}}; }

struct Context {
    EncoderContext memory;
    Context() { std::memset(&memory, 0xA5, sizeof(memory)); }
    i32 init(const EncoderConfig &config) { return TAVIK_Init(&memory, &config); }
    const CodingBlock &block() const { return state_of(memory).coding; }
};

TEST(Init, AbsentPointers) {
    const EncoderConfig config = valid_config();
    EXPECT_EQ(TAVIK_Init(nullptr, &config), -1);
    EXPECT_EQ(TAVIK_Init(nullptr, nullptr), -1);
    Context context;
    EXPECT_EQ(TAVIK_Init(&context.memory, nullptr), -1);
    EXPECT_EQ(context.memory.status, TAVIK_ERR_NULL_POINTER);
    for (const u8 byte : context.memory.opaque) ASSERT_EQ(byte, 0xA5);
}

TEST(Init, SampleRates) {
    const u32 rates[] = {48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
    for (u32 i = 0; i < 9; ++i) EXPECT_EQ(TAVIK_SampleRateIndex(rates[i]), 3 + i);
    for (const u32 rate : {0u, 7350u, 44101u, 64000u, 96000u, bad}) EXPECT_EQ(TAVIK_SampleRateIndex(rate), 15u);
    EXPECT_EQ(TAVIK_get_version(), 0x30000000u);
}

TEST(Init, StartOfTheRateLoopByFrameSize) {
    const std::pair<u32, u32> rows[] = {{184, 45}, {185, 40}, {186, 35}, {277, 35}, {278, 30},
                                        {279, 25}, {370, 25}, {371, 20}, {372, 15}, {768, 15}};
    for (const auto &[bytes, common_sf] : rows) {
        Context context;
        EncoderConfig config = valid_config();
        config.sample_rate = 48000;
        config.bit_rate = bytes * 8 * 48000 / 1024;
        ASSERT_EQ(context.init(config), 0);
        ASSERT_EQ(context.block().mean_channel_bytes, bytes);
        EXPECT_EQ(context.block().initial_common_sf, common_sf) << bytes;
    }
}

TEST(Init, BandLimits) {
    const std::vector<std::array<u32, 4>> rows = {
        {48000, 47, 864, 1}, {44100, 48, 927, 1}, {32000, 51, 1024, 0}, {8000, 40, 1024, 0}};
    for (const auto &[rate, bands, limit, active] : rows) {
        Context context;
        EncoderConfig config = valid_config();
        config.sample_rate = rate;
        config.bit_rate = 8000;
        ASSERT_EQ(context.init(config), 0);
        EXPECT_EQ(context.block().long_band_count, bands);
        EXPECT_EQ(context.block().spectral_limit, limit);
        EXPECT_EQ(context.block().band_limit_active, active);
    }
}

}  // namespace
