// The stream protocol: calls, statuses, results and the delay line.
#include <gtest/gtest.h>

#include <vector>

#include "interface/encoder_context.h"
#include "support/checked_encoder.h"

namespace {

using namespace tavik;

constexpr i32 end_of_stream = TAVIK_STATUS_END_OF_STREAM;
constexpr i32 partial = TAVIK_STATUS_PARTIAL_FRAME;
constexpr i32 no_output = TAVIK_STATUS_NO_OUTPUT;
constexpr i32 flushing = TAVIK_STATUS_FLUSHING;

struct Call {
    i32 status;
    i32 result;
    bool frame;
    bool operator==(const Call &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Call &call) {
    return out << call.status << '/' << call.result << (call.frame ? "+frame" : "");
}

struct Stream {
    EncoderContext context;
    std::vector<i16> pcm = std::vector<i16>(2048, 1000);
    std::array<u8, TAVIK_MAX_FRAME_BYTES> output;

    explicit Stream(u32 emit_priming_frame, u32 channel_mode = TAVIK_MODE_MONO) {
        const EncoderConfig config{channel_mode, 44100, 32000, 0, 0, emit_priming_frame, 0, 0, 0, 0, {}};
        EXPECT_EQ(TAVIK_Init(&context, &config), 0);
    }
    EncoderState &state() { return state_of(context); }
    Call call(u32 samples) {
        u32 count = samples;
        u32 bytes = 4711;
        output.fill(0);
        const i32 result = TAVIK_Encode(&context, pcm.data(), &count, output.data(), &bytes);
        EXPECT_EQ(count, std::min(samples, 1024u));
        return {context.status, result, bytes > 0};
    }
    std::vector<Call> calls(u32 full_frames) {
        std::vector<Call> calls;
        for (u32 i = 0; i < full_frames; ++i) calls.push_back(call(1024));
        do calls.push_back(call(0));
        while (calls.back() != Call{end_of_stream, 1, false} && calls.size() < 20);
        return calls;
    }
};

constexpr Call filling{no_output, 1, false};
constexpr Call full{TAVIK_OK, 0, true};
constexpr Call flush{flushing, 1, true};
constexpr Call last{end_of_stream, 1, true};
constexpr Call over{end_of_stream, 1, false};
using Calls = std::vector<Call>;

TEST(StreamControl, SequencesWithoutPrimingFrame) {
    EXPECT_EQ(Stream(0).calls(0), (Calls{over}));
    EXPECT_EQ(Stream(0).calls(1), (Calls{filling, {flushing, 1, false}, flush, last, over}));
    EXPECT_EQ(Stream(0).calls(2), (Calls{filling, filling, flush, last, over}));
    EXPECT_EQ(Stream(0).calls(3), (Calls{filling, filling, full, flush, last, over}));
    EXPECT_EQ(Stream(0).calls(5), (Calls{filling, filling, full, full, full, flush, last, over}));
}

TEST(StreamControl, SequencesWithPrimingFrame) {
    EXPECT_EQ(Stream(1).calls(0), (Calls{over}));
    EXPECT_EQ(Stream(1).calls(1), (Calls{filling, flush, last, over}));
    EXPECT_EQ(Stream(1).calls(2), (Calls{filling, full, flush, last, over}));
    EXPECT_EQ(Stream(1).calls(3), (Calls{filling, full, full, flush, last, over}));
}

TEST(StreamControl, PartialAndOversizedFrames) {
    Stream stream(0);
    EXPECT_EQ(stream.call(1000), (Call{partial, 1, false})) << "also while the delay line fills";
    EXPECT_EQ(stream.state().lookahead_input[0][999], 1000);
    EXPECT_EQ(stream.state().lookahead_input[0][1000], 0);
    EXPECT_EQ(stream.call(5000), filling);
    EXPECT_EQ(stream.call(1), (Call{partial, 1, true}));
}

TEST(StreamControl, InputAfterTheEndContinuesTheStream) {
    Stream stream(0);
    stream.calls(3);
    EXPECT_EQ(stream.call(0), over);
    EXPECT_EQ(stream.call(1024), full);
    EXPECT_EQ(stream.state().coding.stream_state, 3u);
    EXPECT_EQ(stream.call(0), flush);
    EXPECT_EQ(stream.call(1024), full);
    EXPECT_EQ(stream.call(0), flush);
    EXPECT_EQ(stream.call(0), last);
    EXPECT_EQ(stream.call(0), over);
}

TEST(StreamControl, AbsentPointersChangeNothing) {
    const EncoderConfig config{TAVIK_MODE_STEREO, 44100, 32000, 0, 0, 0, 0, 0, 0, 0, {}};
    const std::vector<i16> pcm(2 * 1024, 1000);
    tavik_test::CheckedEncoder encoder;
    EXPECT_EQ(encoder.init(config), TAVIK_OK);
    for (int call = 0; call < 4; ++call) {
        EXPECT_NO_THROW(encoder.encode_with_absent_pointers());
        EXPECT_NO_THROW(encoder.encode(pcm, 1024)) << "the stream goes on";
    }
}

TEST(StreamControl, OneVariableServesForBothCounts) {
    Stream separate(0), shared(0);
    for (int call = 0; call < 5; ++call) {
        u32 samples = 1024, bytes = 0, count = 1024;
        TAVIK_Encode(&separate.context, separate.pcm.data(), &samples, separate.output.data(), &bytes);
        TAVIK_Encode(&shared.context, shared.pcm.data(), &count, shared.output.data(), &count);
        EXPECT_EQ(count, bytes);
        EXPECT_EQ(shared.context.status, separate.context.status);
    }
}

TEST(StreamControl, DelayLineAndChannels) {
    Stream stream(0, TAVIK_MODE_STEREO);
    for (i16 frame = 1; frame <= 3; ++frame) {
        for (std::size_t i = 0; i < 1024; ++i) {
            stream.pcm[2 * i] = static_cast<i16>(1000 * frame + static_cast<i16>(i));
            stream.pcm[2 * i + 1] = static_cast<i16>(-stream.pcm[2 * i]);
        }
        EXPECT_EQ(stream.state().coding.block_switching_active, 0u);
        stream.call(1024);
    }
    EXPECT_EQ(stream.state().coding.block_switching_active, 1u);
    for (u32 channel = 0; channel < 2; ++channel) {
        const i32 sign = channel == 0 ? 1 : -1;
        // The older half of channel 0 has served as scratch.
        if (channel == 1) {
            EXPECT_EQ(stream.state().time_history[channel][5], -1005);
        }
        EXPECT_EQ(stream.state().time_history[channel][1024 + 5], sign * 2005);
        EXPECT_EQ(stream.state().lookahead_input[channel][1023], sign * 4023);
    }
}

TEST(StreamControl, ReinitialisedContextEqualsAFreshOne) {
    Stream used(1, TAVIK_MODE_STEREO);
    used.calls(4);
    Stream fresh(0);
    const EncoderConfig config{TAVIK_MODE_MONO, 44100, 32000, 0, 0, 0, 0, 0, 0, 0, {}};
    ASSERT_EQ(TAVIK_Init(&used.context, &config), 0);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(used.call(1024), fresh.call(1024));
        if (i >= 2) {
            EXPECT_EQ(used.output, fresh.output);
        }
    }
}

}  // namespace
