// The stream protocol: calls, statuses, results and the delay line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/encoder_context.h"
#include "support/checked_encoder.h"

namespace {

using namespace tavik;
using tavik_test::CheckedEncoder;

EncoderConfig config_of(u32 channel_mode, u32 emit_priming_frame) {
    return {channel_mode, 44100, 32000, 0, 0, emit_priming_frame, 0, 0, 0, 0, {}};
}

// What the calls of a stream answer: a letter for the status, a capital one where a frame comes; CheckedEncoder has
// held results and counts to it. Each call has the samples given.
std::string answers(u32 emit_priming_frame, const std::vector<u32> &calls) {
    const std::vector<i16> pcm(1024, 1000);
    CheckedEncoder encoder;
    encoder.init(config_of(TAVIK_MODE_MONO, emit_priming_frame));
    std::string letters;
    for (const u32 samples : calls) {
        const bool gives_frame = !encoder.encode(std::span(pcm).first(std::min(samples, 1024u)), samples).empty();
        const i32 status = encoder.status();
        const std::size_t place =
            status == TAVIK_OK ? 4 : static_cast<std::size_t>(status - TAVIK_STATUS_END_OF_STREAM);
        letters += (gives_frame ? "EPNFO" : "epnfo")[place];  // end, partial, no output, flushing, ok
    }
    return letters;
}

TEST(StreamControl, Sequences) {
    constexpr u32 full = 1024, end = 0;
    EXPECT_EQ(answers(0, {end, end}), "ee");
    EXPECT_EQ(answers(0, {full, end, end, end, end}), "nfFEe");
    EXPECT_EQ(answers(0, {full, full, end, end, end}), "nnFEe");
    EXPECT_EQ(answers(0, {full, full, full, full, end, end, end, end}), "nnOOFEee");
    EXPECT_EQ(answers(1, {end, end}), "ee");
    EXPECT_EQ(answers(1, {full, end, end, end}), "nFEe");
    EXPECT_EQ(answers(1, {full, full, full, end, end, end}), "nOOFEe");
    // Partial and oversized frames, also while the delay line fills.
    EXPECT_EQ(answers(0, {1000, 5000, 1, 0xFFFFFFFF, end, end}), "pnPOFE");
    // Input after the end continues the stream.
    EXPECT_EQ(answers(0, {full, full, full, end, full, end, end, end, full, end}), "nnOFOFEeOF");
}

TEST(StreamControl, AbsentPointersChangeNothing) {
    const std::vector<i16> pcm(2 * 1024, 1000);
    CheckedEncoder encoder;
    EXPECT_EQ(encoder.init(config_of(TAVIK_MODE_STEREO, 0)), TAVIK_OK);
    for (int call = 0; call < 4; ++call) {
        EXPECT_NO_THROW(encoder.encode_with_absent_pointers());
        EXPECT_NO_THROW(encoder.encode(pcm, 1024)) << "the stream goes on";
    }
}

struct Stream {
    EncoderContext context;
    std::vector<i16> pcm = std::vector<i16>(2048, 1000);
    std::array<u8, TAVIK_MAX_FRAME_BYTES> output{};

    explicit Stream(u32 channel_mode) { init(channel_mode, 0); }
    void init(u32 channel_mode, u32 emit_priming_frame) {
        const EncoderConfig config = config_of(channel_mode, emit_priming_frame);
        EXPECT_EQ(TAVIK_Init(&context, &config), 0);
    }
    EncoderState &state() { return state_of(context); }
    u32 call(u32 samples = 1024) {
        u32 bytes = 0;
        TAVIK_Encode(&context, pcm.data(), &samples, output.data(), &bytes);
        return bytes;
    }
};

TEST(StreamControl, OneVariableServesForBothCounts) {
    Stream separate(TAVIK_MODE_MONO), shared(TAVIK_MODE_MONO);
    for (int call = 0; call < 5; ++call) {
        u32 count = 1024;
        TAVIK_Encode(&shared.context, shared.pcm.data(), &count, shared.output.data(), &count);
        EXPECT_EQ(count, separate.call());
        EXPECT_EQ(shared.context.status, separate.context.status);
    }
}

TEST(StreamControl, DelayLineAndChannels) {
    Stream stream(TAVIK_MODE_STEREO);
    for (i16 frame = 1; frame <= 3; ++frame) {
        for (std::size_t i = 0; i < 1024; ++i) {
            stream.pcm[2 * i] = static_cast<i16>(1000 * frame + static_cast<i16>(i));
            stream.pcm[2 * i + 1] = static_cast<i16>(-stream.pcm[2 * i]);
        }
        EXPECT_EQ(stream.state().coding.block_switching_active, 0u);
        stream.call(frame < 3 ? 1024 : 1000);
    }
    EXPECT_EQ(stream.state().coding.block_switching_active, 1u);
    for (u32 channel = 0; channel < 2; ++channel) {
        const i32 sign = channel == 0 ? 1 : -1;
        EXPECT_EQ(stream.state().time_history[channel][1024 + 5], sign * 2005);
        EXPECT_EQ(stream.state().lookahead_input[channel][999], sign * 3999);
        EXPECT_EQ(stream.state().lookahead_input[channel][1000], 0);
    }
    EXPECT_EQ(stream.state().time_history[1][5], -1005);  // that of channel 0 has served as scratch
}

TEST(StreamControl, ReinitialisedContextEqualsAFreshOne) {
    Stream used(TAVIK_MODE_STEREO);
    used.init(TAVIK_MODE_STEREO, 1);
    for (int call = 0; call < 6; ++call) used.call(call < 4 ? 1024 : 0);
    used.init(TAVIK_MODE_MONO, 0);
    used.output.fill(0);
    Stream fresh(TAVIK_MODE_MONO);
    for (int call = 0; call < 4; ++call) {
        EXPECT_EQ(used.call(), fresh.call());
        EXPECT_EQ(used.context.status, fresh.context.status);
        EXPECT_EQ(used.output, fresh.output);
    }
}

}  // namespace
