// What the element sends is what the library makes of the same samples, at the right times.
#include <glib/gstdio.h>
#include <gst/audio/audio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "element_harness.h"
#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

std::vector<Bytes> bytes_of(const std::vector<Sent> &frames) {
    std::vector<Bytes> all;
    for (const Sent &frame : frames) all.push_back(frame.bytes);
    return all;
}

EncoderConfig config_of(std::uint32_t mode, std::uint32_t rate, std::uint32_t bit_rate, std::uint32_t header = 2,
                        std::uint32_t constant = 0, std::uint32_t priming = 0, std::uint32_t no_tns = 0) {
    return {mode, rate, bit_rate, header, constant, priming, no_tns, 0, 0, 0, {}};
}

// How a stream begins.
enum class Start {
    plain,   // without priming frame
    early,   // with the priming frame, one frame before the input
    clipped  // with the priming frame, of which nothing is to be heard
};

// Time and duration of every frame: those of the samples that it decodes to, to the end of the input and no further.
void expect_times(const std::vector<Sent> &frames, std::size_t samples, unsigned rate, GstClockTime start, Start kind) {
    const GstClockTime frame_time = time_of(1024, rate);
    const std::size_t priming = kind == Start::plain ? 0 : 1;
    for (std::size_t k = 0; k < frames.size(); ++k) {
        SCOPED_TRACE(testing::Message() << "frame " << k);
        const Sent &frame = frames[k];
        EXPECT_EQ(frame.dts, frame.pts);
        if (k < priming) {
            const bool clipped = kind == Start::clipped;
            EXPECT_EQ(frame.pts, clipped ? start : start - frame_time);
            EXPECT_EQ(frame.duration, clipped ? 0 : frame_time);
            EXPECT_EQ(frame.clipped_at_start, clipped ? 1024u : 0u);
            EXPECT_EQ(frame.clipped_at_end, 0u);
            continue;
        }
        const std::size_t first = std::min((k - priming) * 1024, samples);
        const std::size_t own = std::min<std::size_t>(1024, samples - first);
        EXPECT_NEAR(static_cast<double>(frame.pts), static_cast<double>(start + time_of(first, rate)), 1);
        EXPECT_NEAR(static_cast<double>(frame.duration), static_cast<double>(time_of(own, rate)), 2);
        EXPECT_EQ(frame.clipped_at_start, 0u);
        EXPECT_EQ(frame.clipped_at_end, 1024 - own);
    }
}

struct Case {
    const char *properties;
    const char *downstream;  // caps, or null for any
    unsigned channels;
    EncoderConfig config;
    const char *caps;
};

void PrintTo(const Case &c, std::ostream *out) {
    *out << c.properties << " / " << (c.downstream == nullptr ? "any" : c.downstream);
}

class Streams : public testing::TestWithParam<Case> {};

// Every frame, whole or not, whatever the end; and the caps, with the decoder's description where the frames are raw.
TEST_P(Streams, AreTheLibrarys) {
    const Case &c = GetParam();
    for (const std::size_t samples : {1u, 1023u, 1024u, 1025u, 2048u, 9000u}) {
        SCOPED_TRACE(samples);
        const Samples pcm = make_signal(SignalKind::music, c.channels, samples, c.config.sample_rate, 7);
        ElementHarness encoder(c.properties, c.downstream);
        encoder.set_input(c.config.sample_rate, c.channels);
        encoder.push_all(pcm);
        encoder.end();
        const auto frames = encoder.take();
        EXPECT_EQ(bytes_of(frames), encode_stream(c.config, pcm).frames);
        const Start kind = c.config.emit_priming_frame == 1 ? Start::clipped : Start::plain;
        expect_times(frames, samples, c.config.sample_rate, 0, kind);
        EXPECT_EQ(text_of(encoder.output_caps().get()), text_of(Owned<GstCaps>(gst_caps_from_string(c.caps)).get()));
    }
}

#define RAW "audio/mpeg, mpegversion=(int)4, stream-format=(string)raw, framed=(boolean)true, "
#define MPEG2(format) "audio/mpeg, mpegversion=(int)2, stream-format=(string)" format ", framed=(boolean)true, "
#define LC ", level=(string)2, base-profile=(string)lc, profile=(string)lc, codec_data=(buffer)"
INSTANTIATE_TEST_SUITE_P(
    All, Streams,
    testing::Values(
        Case{"", nullptr, 2, config_of(TAVIK_MODE_STEREO, 44100, 64000),
             RAW "rate=(int)44100, channels=(int)2" LC "1210"},
        Case{"bitrate=96000", "audio/mpeg,mpegversion=4", 1, config_of(TAVIK_MODE_MONO, 24000, 96000),
             RAW "rate=(int)24000, channels=(int)1, level=(string)1, base-profile=(string)lc, profile=(string)lc, "
                 "codec_data=(buffer)1308"},
        Case{"bitrate=20001 tns=false", "audio/mpeg,mpegversion={2,4},stream-format={adts,raw}", 2,
             config_of(TAVIK_MODE_STEREO, 12000, 10000, 2, 0, 0, 1),
             RAW "rate=(int)12000, channels=(int)2, level=(string)1, base-profile=(string)lc, profile=(string)lc, "
                 "codec_data=(buffer)1490"},
        Case{"priming=true rate-control=cbr", "audio/mpeg,mpegversion=4,stream-format=raw", 2,
             config_of(TAVIK_MODE_STEREO, 32000, 46000, 2, 1, 1), RAW "rate=(int)32000, channels=(int)2" LC "1290"},
        Case{"channel-mode=two-mono bitrate=128000", "audio/mpeg,mpegversion={2,4},stream-format={adts,raw}", 2,
             config_of(TAVIK_MODE_TWO_MONO, 48000, 64000),
             RAW "rate=(int)48000, channels=(int)2, base-profile=(string)lc, profile=(string)lc, "
                 "codec_data=(buffer)118054c80000001000"},
        Case{"channel-mode=two-mono", "audio/mpeg,framed=true,mpegversion={2,4},stream-format={adts,raw}", 2,
             config_of(TAVIK_MODE_TWO_MONO, 48000, 64000, 0),
             MPEG2("adts") "rate=(int)48000, channels=(int)2, profile=(string)lc"},
        Case{"", "audio/mpeg,stream-format={adts,adif}", 2, config_of(TAVIK_MODE_STEREO, 44100, 64000, 0),
             MPEG2("adts") "rate=(int)44100, channels=(int)2, level=(string)2, profile=(string)lc"},
        Case{"rate-control=cbr priming=true", "audio/mpeg,mpegversion=2", 1,
             config_of(TAVIK_MODE_MONO, 8000, 12000, 0, 1, 1),
             MPEG2("adts") "rate=(int)8000, channels=(int)1, level=(string)1, profile=(string)lc"},
        Case{"rate-control=cbr", "audio/mpeg,stream-format=adif", 2, config_of(TAVIK_MODE_STEREO, 22050, 32000, 1, 1),
             MPEG2("adif") "rate=(int)22050, channels=(int)2, level=(string)1, profile=(string)lc"}));

// The priming frame has a time of its own if the segment has begun by then.
TEST(Times, LeaveRoomForThePrimingFrame) {
    const Samples pcm = make_signal(SignalKind::music, 1, 5000, 44100, 1);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = segment.time = 7 * GST_SECOND;
    const GstClockTime room = segment.start + time_of(1024, 44100);
    for (const auto &[start, kind] : {std::pair{room, Start::early}, {room - 1, Start::clipped}}) {
        ElementHarness encoder("priming=true");
        encoder.set_input(44100, 1);
        encoder.send(gst_event_new_segment(&segment));
        encoder.push_all(pcm, start);
        encoder.end();
        expect_times(encoder.take(), 5000, 44100, start, kind);
    }
}

// A segment of bytes in between, which nothing here understands, changes nothing.
TEST(Times, AreAbsentWithoutAnyInTheInput) {
    const Samples pcm = make_signal(SignalKind::music, 1, 3000, 44100, 1);
    ElementHarness encoder("priming=true");
    encoder.set_input(44100, 1);
    encoder.push(pcm.data(), 2000, GST_CLOCK_TIME_NONE);
    GstSegment bytes;
    gst_segment_init(&bytes, GST_FORMAT_BYTES);
    encoder.send(gst_event_new_segment(&bytes));
    encoder.push(pcm.data() + 2000, 1000, GST_CLOCK_TIME_NONE);
    encoder.end();
    const auto frames = encoder.take();
    EXPECT_EQ(bytes_of(frames), encode_stream(config_of(TAVIK_MODE_MONO, 44100, 64000, 2, 0, 1), pcm).frames);
    EXPECT_EQ(frames[0].clipped_at_start, 1024u);
    for (const Sent &frame : frames) EXPECT_EQ(frame.pts, GST_CLOCK_TIME_NONE);
}

// A source that misses some samples tells so by its times: frames have the time of their first sample, and nothing that
// is still in the encoder is lost.
TEST(Times, FollowTheInputOverAGap) {
    const Samples pcm = make_signal(SignalKind::music, 1, 6000, 44100, 1);
    const auto first = pcm.begin() + 3000;
    ElementHarness encoder;
    encoder.set_input(44100, 1);
    encoder.push_all(Samples(pcm.begin(), first));
    encoder.push_all(Samples(first, pcm.end()), GST_SECOND);
    encoder.end();
    const auto frames = encoder.take();
    EXPECT_EQ(bytes_of(frames), encode_stream(config_of(TAVIK_MODE_MONO, 44100, 64000), pcm).frames);
    for (std::size_t k = 0; k < frames.size(); ++k) {
        const std::size_t at = 1024 * k;
        const GstClockTime time = at < 3000 ? time_of(at, 44100) : GST_SECOND + time_of(at - 3000, 44100);
        EXPECT_NEAR(static_cast<double>(frames[k].pts), static_cast<double>(time), 2) << "frame " << k;
    }
}

// The reported latency is what a frame, fed sample by sample, waits for its last one.
TEST(Latency, IsReportedAndTrue) {
    for (const unsigned rate : {48000u, 8000u}) {
        ElementHarness encoder;
        gst_harness_set_upstream_latency(encoder.harness(), 10 * GST_MSECOND);
        encoder.set_input(rate, 1);
        const Samples pcm = make_signal(SignalKind::dither, 1, 6000, rate, 1);
        std::size_t frames = 0;
        for (std::size_t k = 0; k < pcm.size(); ++k) {
            encoder.push(&pcm[k], 1, time_of(k, rate));
            for (const Sent &frame : encoder.take()) {
                ++frames;
                EXPECT_NEAR(static_cast<double>(time_of(k + 1, rate) - frame.pts),
                            static_cast<double>(time_of(3072, rate)), 2);
            }
        }
        EXPECT_EQ(frames, 3u);
        EXPECT_NEAR(static_cast<double>(gst_harness_query_latency(encoder.harness())),
                    static_cast<double>(10 * GST_MSECOND + time_of(3072, rate)), 1);
    }
}

// What was in the encoder is forgotten; the next stream is as the first one of a new element.
TEST(Restarts, FlushForgetsEverything) {
    const Samples pcm = make_signal(SignalKind::transients, 2, 7000, 44100, 3);
    ElementHarness encoder("priming=true");
    encoder.set_input(44100, 2);
    encoder.push_all(make_signal(SignalKind::white_noise, 2, 4321, 44100, 3));
    encoder.take();
    encoder.send(gst_event_new_flush_start());
    encoder.send(gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = segment.time = 60 * GST_SECOND;
    encoder.send(gst_event_new_segment(&segment));
    encoder.push_all(pcm, segment.start);
    encoder.end();
    const auto frames = encoder.take();
    EXPECT_EQ(bytes_of(frames), encode_stream(config_of(TAVIK_MODE_STEREO, 44100, 64000, 2, 0, 1), pcm).frames);
    expect_times(frames, 7000, 44100, segment.start, Start::clipped);
}

// Downstream is gone when a stream ends, and back for the next one, which begins with a segment or another format.
TEST(Restarts, RefusedEndIsForgotten) {
    const GstClockTime start = 10 * GST_SECOND;
    for (const auto &config : {config_of(TAVIK_MODE_MONO, 44100, 64000), config_of(TAVIK_MODE_STEREO, 16000, 23000)}) {
        const unsigned channels = config.channel_mode == TAVIK_MODE_MONO ? 1 : 2;
        SCOPED_TRACE(channels);
        const Samples pcm = make_signal(SignalKind::transients, channels, 3500, config.sample_rate, 3);
        ElementHarness encoder;
        encoder.set_input(44100, 1);
        encoder.push_all(make_signal(SignalKind::white_noise, 1, 4321, 44100, 3));
        encoder.take();
        gst_pad_set_active(encoder.harness()->sinkpad, FALSE);
        if (channels == 1) {
            GstSegment segment;
            gst_segment_init(&segment, GST_FORMAT_TIME);
            encoder.send(gst_event_new_segment(&segment));
        } else {
            encoder.change_input(config.sample_rate, channels);
        }
        encoder.push(pcm.data(), 1, start);
        gst_pad_set_active(encoder.harness()->sinkpad, TRUE);
        encoder.push_all(Samples(pcm.begin() + channels, pcm.end()), start + time_of(1, config.sample_rate));
        encoder.end();
        const auto frames = encoder.take();
        EXPECT_EQ(bytes_of(frames), encode_stream(config, pcm).frames);
        expect_times(frames, 3500, config.sample_rate, start, Start::plain);
    }
}

// A segment without a flush, as from a source that plays files one after the other: the first stream ends complete, and
// the next one has no priming frame, for which there is no time.
TEST(Restarts, SegmentDrains) {
    const Samples pcm = make_signal(SignalKind::transients, 1, 3500, 44100, 3);
    ElementHarness encoder("priming=true");
    encoder.set_input(44100, 1);
    for (const unsigned priming : {1u, 0u}) {
        encoder.push_all(pcm, GST_SECOND);
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        segment.base = time_of(3500, 44100);
        encoder.send(gst_event_new_segment(&segment));
        const auto frames = encoder.take();
        EXPECT_EQ(bytes_of(frames), encode_stream(config_of(TAVIK_MODE_MONO, 44100, 64000, 2, 0, priming), pcm).frames);
        expect_times(frames, 3500, 44100, GST_SECOND, priming == 1 ? Start::early : Start::plain);
    }
}

// New caps in the middle: the old stream ends complete, and a new one goes on at its end, without another priming
// frame.
TEST(Restarts, CapsChangeDrains) {
    const Samples stereo = make_signal(SignalKind::music, 2, 3500, 44100, 3);
    const Samples mono = make_signal(SignalKind::music, 1, 2500, 16000, 3);
    ElementHarness encoder("priming=true", "audio/mpeg,stream-format=adts");
    encoder.set_input(44100, 2);
    encoder.push_all(stereo);
    const auto first = encode_stream(config_of(TAVIK_MODE_STEREO, 44100, 64000, 0, 0, 1), stereo).frames;
    auto frames = encoder.take();
    EXPECT_LT(frames.size(), first.size());

    encoder.change_input(16000, 1);
    const GstClockTime start = time_of(3500, 44100);
    encoder.push_all(mono, start);
    encoder.end();
    for (Sent &frame : encoder.take()) frames.push_back(std::move(frame));
    ASSERT_GT(frames.size(), first.size());
    const std::vector<Sent> rest(frames.begin() + static_cast<std::ptrdiff_t>(first.size()), frames.end());
    frames.resize(first.size());
    EXPECT_EQ(bytes_of(frames), first);
    expect_times(frames, 3500, 44100, 0, Start::clipped);
    EXPECT_EQ(bytes_of(rest), encode_stream(config_of(TAVIK_MODE_MONO, 16000, 23000, 0), mono).frames);
    expect_times(rest, 2500, 16000, start, Start::plain);
    EXPECT_NE(text_of(encoder.output_caps().get()).find("rate=(int)16000, channels=(int)1"), std::string::npos);
}

TEST(Restarts, ElementCanBeUsedAgain) {
    const Samples pcm = make_signal(SignalKind::music, 1, 2000, 44100, 3);
    ElementHarness encoder("priming=true");
    encoder.set_input(44100, 1);
    encoder.push_all(make_signal(SignalKind::white_noise, 1, 3000, 44100, 3));
    encoder.take();
    GstElement *element = encoder.harness()->element;
    ASSERT_EQ(gst_element_set_state(element, GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
    ASSERT_NE(gst_element_set_state(element, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    encoder.send(gst_event_new_stream_start("again"));
    encoder.change_input(44100, 1);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    encoder.send(gst_event_new_segment(&segment));
    encoder.push_all(pcm);
    encoder.end();
    EXPECT_EQ(bytes_of(encoder.take()), encode_stream(config_of(TAVIK_MODE_MONO, 44100, 64000, 2, 0, 1), pcm).frames);
}

// Samples at an odd address, as a parser may leave them.
TEST(Input, MayBeginAnywhere) {
    const Samples pcm = make_signal(SignalKind::music, 1, 1024, 44100, 3);
    Bytes memory(1 + pcm.size() * sizeof pcm[0]);
    std::memcpy(memory.data() + 1, pcm.data(), memory.size() - 1);
    ElementHarness encoder;
    encoder.set_input(44100, 1);
    GstBuffer *buffer = gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, memory.data(), memory.size(), 1,
                                                    memory.size() - 1, nullptr, nullptr);
    GST_BUFFER_PTS(buffer) = 0;
    EXPECT_EQ(gst_harness_push(encoder.harness(), buffer), GST_FLOW_OK);
    encoder.end();
    EXPECT_EQ(bytes_of(encoder.take()), encode_stream(config_of(TAVIK_MODE_MONO, 44100, 64000), pcm).frames);
}

// Converters upstream learn how many channels the mode takes.
TEST(Input, ChannelsAreThoseOfTheMode) {
    for (const auto &[properties, channels] : {std::pair{"", "channels=(int)[ 1, 2 ]"},
                                               {"channel-mode=mono", "channels=(int)1"},
                                               {"channel-mode=stereo", "channels=(int)2"},
                                               {"channel-mode=two-mono", "channels=(int)2"}}) {
        ElementHarness encoder(properties);
        const Owned<GstCaps> caps(gst_pad_peer_query_caps(encoder.harness()->srcpad, nullptr));
        EXPECT_NE(text_of(caps.get()).find(channels), std::string::npos) << text_of(caps.get());
    }
    ElementHarness encoder("", "audio/mpeg,rate=16000");
    const Owned<GstCaps> caps(gst_pad_peer_query_caps(encoder.harness()->srcpad, nullptr));
    EXPECT_NE(text_of(caps.get()).find("rate=(int)16000"), std::string::npos) << text_of(caps.get());
}

TEST(Refusals, NameWhatIsLegal) {
    struct Refusal {
        const char *properties;
        const char *downstream;
        unsigned rate, channels;
        const char *message;
    };
    for (const Refusal &r : std::initializer_list<Refusal>{
             {"bitrate=15999", nullptr, 44100, 2,
              "bitrate 15999 must be 16000 to 529200 bit/s for 2 channels at 44100 Hz (8000 to 264600 per channel)"},
             {"bitrate=48001", nullptr, 8000, 1,
              "bitrate 48001 must be 8000 to 48000 bit/s for 1 channel at 8000 Hz (8000 to 48000 per channel)"},
             {"bitrate=4294967295", nullptr, 48000, 2,
              "bitrate 4294967295 must be 16000 to 576000 bit/s for 2 channels at 48000 Hz (8000 to 288000 per "
              "channel)"},
             {"channel-mode=mono", nullptr, 44100, 2, "channel-mode takes 1 channel, the input has 2"},
             {"channel-mode=two-mono", nullptr, 44100, 1, "channel-mode takes 2 channels, the input has 1"},
             {"", "audio/mpeg,mpegversion=4,stream-format=adts", 44100, 1,
              "nothing downstream takes AAC-LC of this input as raw frames, or as ADTS or ADIF of MPEG-2"}}) {
        SCOPED_TRACE(r.properties);
        ElementHarness encoder(r.properties, r.downstream);
        encoder.set_input(r.rate, r.channels);
        EXPECT_EQ(encoder.push(Samples(2048).data(), 1024, 0), GST_FLOW_NOT_NEGOTIATED);
        EXPECT_EQ(encoder.error(), r.message);
        EXPECT_TRUE(encoder.take().empty());
    }
    for (const char *bit_rate : {"bitrate=16000", "bitrate=529200"}) {
        ElementHarness encoder(bit_rate);
        encoder.set_input(44100, 2);
        EXPECT_EQ(encoder.push(Samples(2048).data(), 1024, 0), GST_FLOW_OK);
    }
}

// A format that is refused leaves the one before it in force.
TEST(Refusals, OldFormatGoesOn) {
    const Samples pcm = make_signal(SignalKind::music, 1, 5000, 48000, 3);
    ElementHarness encoder("bitrate=96000");
    encoder.set_input(48000, 1);
    encoder.push_all(pcm);
    encoder.change_input(8000, 1);
    EXPECT_EQ(encoder.push(pcm.data(), 1000, GST_SECOND), GST_FLOW_NOT_NEGOTIATED);
    encoder.take();
    encoder.change_input(48000, 1);
    EXPECT_EQ(encoder.push(pcm.data(), 5000, 2 * GST_SECOND), GST_FLOW_OK);
    encoder.end();
    EXPECT_EQ(bytes_of(encoder.take()), encode_stream(config_of(TAVIK_MODE_MONO, 48000, 96000), pcm).frames);
}

// With the tags of the input, and in place of what those say of its coding.
TEST(Tags, TellCodecAndBitRates) {
    for (const bool constant : {false, true}) {
        ElementHarness encoder(constant ? "rate-control=cbr bitrate=128000" : "bitrate=128000");
        encoder.set_input(44100, 2);
        encoder.send(gst_event_new_tag(
            gst_tag_list_new(GST_TAG_TITLE, "song", GST_TAG_AUDIO_CODEC, "Vorbis", GST_TAG_BITRATE, 500000, nullptr)));
        const Samples pcm = make_signal(SignalKind::white_noise, 2, 44100, 44100, 1);
        encoder.push_all(pcm);
        encoder.end();
        GstTagList *tags = nullptr;
        Owned<GstEvent> last;
        while (Owned<GstEvent> event = encoder.event(GST_EVENT_TAG)) last = std::move(event);
        gst_event_parse_tag(last.get(), &tags);
        const auto number = [&](const char *tag) {
            guint value = 0;
            return gst_tag_list_get_uint(tags, tag, &value) ? value : 0;
        };
        const auto text = [&](const char *tag) {
            gchar *value = nullptr;
            return gst_tag_list_get_string(tags, tag, &value) ? std::string(Owned<gchar>(value).get()) : "";
        };
        EXPECT_EQ(text(GST_TAG_TITLE), "song");
        EXPECT_EQ(text(GST_TAG_AUDIO_CODEC), "MPEG-4 AAC");
        EXPECT_EQ(text(GST_TAG_ENCODER), "Tavik");
        EXPECT_EQ(number(GST_TAG_NOMINAL_BITRATE), 128000u);
        std::size_t largest = 0;
        for (const Sent &frame : encoder.take()) largest = std::max(largest, frame.bytes.size());
        const auto largest_rate = static_cast<guint>(largest * 8 * 44100 / 1024);
        if (constant) {
            for (const char *tag : {GST_TAG_BITRATE, GST_TAG_MINIMUM_BITRATE, GST_TAG_MAXIMUM_BITRATE}) {
                EXPECT_EQ(number(tag), largest_rate) << tag;
            }
        } else {
            EXPECT_EQ(number(GST_TAG_BITRATE), 0u);
            EXPECT_GE(number(GST_TAG_MAXIMUM_BITRATE), largest_rate);
            EXPECT_LE(number(GST_TAG_MAXIMUM_BITRATE), 144u * 128000 / 100);
        }
    }
}

// Elements that choose encoders by themselves leave one of rank none alone.
TEST(Registration, ChangesNobodysPipelines) {
    GstElementFactory *factory = gst_element_factory_find("tavikenc");
    ASSERT_NE(factory, nullptr);
    EXPECT_EQ(gst_plugin_feature_get_rank(GST_PLUGIN_FEATURE(factory)), guint{GST_RANK_NONE});
    EXPECT_STREQ(gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS), "Codec/Encoder/Audio");
    gst_object_unref(factory);
}

}  // namespace

// Only the plug-in under test, and no trace of it in the user's registry. What GLib finds wrong ends the test.
int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    const Owned<gchar> directory(g_dir_make_tmp("tavikenc-XXXXXX", nullptr));
    const std::string registry = directory.get() + std::string("/registry.bin");
    for (const auto &[name, value] : {std::pair{"GST_REGISTRY", registry.c_str()},
                                      {"GST_PLUGIN_SYSTEM_PATH", ""},
                                      {"GST_PLUGIN_PATH", ""},
                                      {"GST_REGISTRY_FORK", "no"},
                                      {"G_DEBUG", "fatal-criticals"}}) {
        g_setenv(name, value, TRUE);
    }
    gst_init(nullptr, nullptr);
    GstPlugin *plugin = gst_plugin_load_file(TAVIK_GSTREAMER_PLUGIN, nullptr);
    const int result = plugin == nullptr ? EXIT_FAILURE : RUN_ALL_TESTS();
    gst_clear_object(&plugin);
    gst_deinit();
    g_remove(registry.c_str());
    g_rmdir(directory.get());
    return result;
}
