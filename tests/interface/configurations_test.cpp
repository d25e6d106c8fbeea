// Every configuration there is, valid or not.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;
using std::uint32_t;

constexpr uint32_t flags = 6;  // of a configuration

EncoderConfig configuration(uint32_t mode, uint32_t rate, uint32_t bit_rate, uint32_t header, uint32_t flag_bits) {
    const auto bit = [&](uint32_t i) { return flag_bits >> i & 1; };
    return {
        mode, rate, bit_rate, header, bit(0), bit(1), bit(2), bit(3), bit(4), bit(5), {165, 8, 7, 6, 5, 4, 3, 2, 1}};
}

std::string describe(const EncoderConfig &config, uint32_t flag_bits) {
    return "mode " + std::to_string(config.channel_mode) + ", bit rate " + std::to_string(config.bit_rate) +
           ", header " + std::to_string(config.header_type) + ", flags " + std::to_string(flag_bits);
}

// Three frames, the last of them short: full-scale noise after silence, which ends later in the second channel.
std::vector<std::int16_t> make_attacks(std::size_t channels, uint32_t rate) {
    auto pcm = make_signal(SignalKind::white_noise, static_cast<unsigned>(channels), 2100, rate, 1);
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t time = 0; time < 700 + 600 * channel; ++time) pcm[time * channels + channel] = 0;
    }
    return pcm;
}

class EveryConfiguration : public testing::TestWithParam<uint32_t> {};

TEST_P(EveryConfiguration, GivesAStreamThatSaysSo) {
    const uint32_t rate = GetParam();
    for (uint32_t mode = 0; mode < 3; ++mode) {
        const auto pcm = make_attacks(mode == TAVIK_MODE_MONO ? 1 : 2, rate);
        for (const uint32_t bit_rate : {8000u, rate * 3 / 2, 6 * rate}) {
            for (uint32_t i = 0; i < 3u << flags; ++i) {
                const EncoderConfig config = configuration(mode, rate, bit_rate, i >> flags, i % (1u << flags));
                ASSERT_NO_THROW(read_stream(config, encode_stream(config, pcm))) << describe(config, i % (1u << flags));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rate, EveryConfiguration,
                         testing::Values(48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000),
                         testing::PrintToStringParamName());

struct Field {
    uint32_t EncoderConfig::*value;
    std::int32_t status;
    std::array<uint32_t, 4> bad;
};

// In the order of the checks.
constexpr std::array<uint32_t, 4> above_2 = {3, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr std::array<uint32_t, 4> above_1 = {2, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr Field fields[] = {{&EncoderConfig::channel_mode, TAVIK_ERR_CHANNEL_MODE, above_2},
                            {&EncoderConfig::sample_rate, TAVIK_ERR_SAMPLE_RATE, {0, 44099, 96000, 0xFFFFFFFF}},
                            {&EncoderConfig::bit_rate, TAVIK_ERR_BIT_RATE, {0, 7999, 6 * 44100 + 1, 0xFFFFFFFF}},
                            {&EncoderConfig::header_type, TAVIK_ERR_HEADER_TYPE, above_2},
                            {&EncoderConfig::constant_rate, TAVIK_ERR_CONSTANT_RATE, above_1},
                            {&EncoderConfig::emit_priming_frame, TAVIK_ERR_PRIMING_FRAME, above_1},
                            {&EncoderConfig::tns_disable, TAVIK_ERR_TNS_DISABLE, above_1},
                            {&EncoderConfig::home, TAVIK_ERR_HOME, above_1},
                            {&EncoderConfig::original_copy, TAVIK_ERR_ORIGINAL_COPY, above_1},
                            {&EncoderConfig::copyright_id_present, TAVIK_ERR_COPYRIGHT_ID_PRESENT, above_1}};

TEST(BadConfigurations, TheFirstBadFieldDecidesTheStatus) {
    const auto context = std::make_unique<EncoderContext>();
    for (uint32_t bad = 0; bad < 1u << std::size(fields); ++bad) {  // bit i: fields[i] is bad
        for (std::size_t choice = 0; choice < 4; ++choice) {
            EncoderConfig config = configuration(TAVIK_MODE_TWO_MONO, 44100, 64000, TAVIK_HEADER_NONE, ~0u);
            std::int32_t expected = TAVIK_OK;
            for (std::size_t i = 0; i < std::size(fields); ++i) {
                if ((bad >> i & 1) == 0) continue;
                config.*fields[i].value = fields[i].bad[choice];
                if (expected == TAVIK_OK) expected = fields[i].status;
            }
            ASSERT_EQ(TAVIK_Init(context.get(), &config), expected == TAVIK_OK ? 0 : -1) << bad << ' ' << choice;
            ASSERT_EQ(context->status, expected) << bad << ' ' << choice;
        }
    }
}

}  // namespace
