// The element sends the same frames as the library makes from the same samples, with the right times.
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <tuple>

#include "element_harness.h"
#include "support/signals.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

EncoderConfig config_of(std::uint32_t mode, std::uint32_t rate, std::uint32_t bit_rate, std::uint32_t header = 2,
                        std::uint32_t constant = 0, std::uint32_t priming = 0, std::uint32_t no_tns = 0) {
    return {mode, rate, bit_rate, header, constant, priming, no_tns, 0, 0, 0, {}};
}

const EncoderConfig mono = config_of(TAVIK_MODE_MONO, 44100, 64000);
const EncoderConfig stereo = config_of(TAVIK_MODE_STEREO, 44100, 64000);

Samples signal_for(const EncoderConfig &config, std::size_t samples, SignalKind kind = SignalKind::music) {
    return make_signal(kind, channel_count(config), samples, config.sample_rate, 7);
}

// `tolerance`: nanoseconds of rounding error.
void expect_time(GstClockTime actual, GstClockTime expected, int tolerance) {
    EXPECT_NEAR(static_cast<double>(actual), static_cast<double>(expected), tolerance);
}

// How a stream begins.
enum class Start {
    plain,   // without priming frame
    early,   // with the priming frame, one frame before the input
    clipped  // with the priming frame, whose samples are to be clipped
};

// The frames must be the library's. Each must have the time and duration of the samples that it decodes to; the last
// one ends with the input.
void expect_stream(const std::vector<Sent> &frames, EncoderConfig config, const Samples &pcm, GstClockTime start,
                   Start kind) {
    const std::size_t samples = pcm.size() / channel_count(config);
    const unsigned rate = config.sample_rate;
    const std::size_t priming = config.emit_priming_frame = kind == Start::plain ? 0 : 1;
    const auto expected = encode_stream(config, pcm).frames;
    ASSERT_EQ(frames.size(), expected.size());
    for (std::size_t k = 0; k < frames.size(); ++k) {
        SCOPED_TRACE(testing::Message() << "frame " << k);
        const Sent &frame = frames[k];
        EXPECT_EQ(frame.bytes, expected[k]);
        EXPECT_EQ(frame.dts, frame.pts);
        if (k < priming) {
            const bool clipped = kind == Start::clipped;
            EXPECT_EQ(frame.pts, clipped ? start : start - time_of(1024, rate));
            EXPECT_EQ(frame.duration, clipped ? 0 : time_of(1024, rate));
            EXPECT_EQ(frame.clipped_at_start, clipped ? 1024u : 0u);
            EXPECT_EQ(frame.clipped_at_end, 0u);
            continue;
        }
        const std::size_t first = std::min((k - priming) * 1024, samples);
        const std::size_t own = std::min<std::size_t>(1024, samples - first);
        expect_time(frame.pts, start + time_of(first, rate), 1);
        expect_time(frame.duration, time_of(own, rate), 2);
        EXPECT_EQ(frame.clipped_at_start, 0u);
        EXPECT_EQ(frame.clipped_at_end, 1024 - own);
    }
}

// All frames for several lengths of the input, and the caps, which have codec_data for raw frames.
TEST(Streams, AreThoseOfTheLibrary) {
    const auto raw = [](const std::string &rest) {
        return "audio/mpeg,mpegversion=4,stream-format=raw,base-profile=lc,codec_data=(buffer)" + rest;
    };
    const auto mpeg2 = [](const std::string &rest) { return "audio/mpeg,mpegversion=2,stream-format=" + rest; };
    const char *raw_or_adts = "audio/mpeg,mpegversion={2,4},stream-format={adts,raw}";
    for (const auto &[properties, downstream, config, expected] :
         std::initializer_list<std::tuple<const char *, const char *, EncoderConfig, std::string>>{
             {"", "ANY", stereo, raw("1210,level=(string)2")},
             {"bitrate=96000", "audio/mpeg,mpegversion=4", config_of(TAVIK_MODE_MONO, 24000, 96000),
              raw("1308,level=(string)1")},
             {"bitrate=20001", raw_or_adts, config_of(TAVIK_MODE_STEREO, 12000, 10000), raw("1490,level=(string)1")},
             {"priming=true rate-control=cbr", "audio/mpeg,mpegversion=4,stream-format=raw",
              config_of(TAVIK_MODE_STEREO, 32000, 46000, 2, 1, 1), raw("1290,level=(string)2")},
             {"channel-mode=two-mono bitrate=128000", raw_or_adts, config_of(TAVIK_MODE_TWO_MONO, 48000, 64000),
              raw("118054c80000001000")},
             {"channel-mode=two-mono", "audio/mpeg,framed=true,mpegversion={2,4},stream-format={adts,raw}",
              config_of(TAVIK_MODE_TWO_MONO, 48000, 64000, 0), mpeg2("adts")},
             {"tns=false", "audio/mpeg,stream-format={adts,adif}",
              config_of(TAVIK_MODE_STEREO, 44100, 64000, 0, 0, 0, 1), mpeg2("adts,level=(string)2")},
             {"rate-control=cbr priming=true", "audio/mpeg,mpegversion=2",
              config_of(TAVIK_MODE_MONO, 8000, 12000, 0, 1, 1), mpeg2("adts,level=(string)1")},
             {"rate-control=cbr", "audio/mpeg,stream-format=adif", config_of(TAVIK_MODE_STEREO, 22050, 32000, 1, 1),
              mpeg2("adif,level=(string)1")}}) {
        const Owned<GstCaps> caps(gst_caps_from_string(expected.c_str()));
        gst_caps_set_simple(caps.get(), "framed", G_TYPE_BOOLEAN, TRUE, "profile", G_TYPE_STRING, "lc", "rate",
                            G_TYPE_INT, config.sample_rate, "channels", G_TYPE_INT, channel_count(config), nullptr);
        for (const std::size_t samples : {1u, 1023u, 1024u, 1025u, 2048u, 9000u}) {
            SCOPED_TRACE(testing::Message() << properties << " / " << expected << ", " << samples << " samples");
            const Samples pcm = signal_for(config, samples, SignalKind::transients);
            ElementHarness encoder(config, properties, downstream);
            encoder.push_all(pcm);
            const Start kind = config.emit_priming_frame == 1 ? Start::clipped : Start::plain;
            expect_stream(encoder.end(), config, pcm, 0, kind);
            const Owned<GstCaps> actual = encoder.output_caps();
            EXPECT_TRUE(actual && gst_caps_is_strictly_equal(actual.get(), caps.get())) << text_of(actual);
        }
    }
}

// The priming frame has its own time if the segment starts at least one frame before the input.
TEST(Times, OfThePrimingFrame) {
    const Samples pcm = signal_for(mono, 5000);
    const GstClockTime room = 7 * GST_SECOND + time_of(1024, 44100);
    for (const auto &[start, kind] : {std::pair{room, Start::early}, {room - 1, Start::clipped}}) {
        ElementHarness encoder(mono, "priming=true");
        encoder.begin_segment(7 * GST_SECOND);
        encoder.push_all(pcm, start);
        expect_stream(encoder.end(), mono, pcm, start, kind);
    }
}

// A source without time stamps, and one with a gap that its time stamps show: frames have the time of their first
// sample, and no samples in the encoder are lost. A segment in bytes, which the base class ignores, changes nothing.
TEST(Times, FollowTheInput) {
    const Samples pcm = signal_for(mono, 6000);
    const auto middle = pcm.begin() + 3000;
    for (const bool absent : {false, true}) {
        ElementHarness encoder(mono, absent ? "priming=true" : "");
        if (absent) {
            encoder.push(pcm.data(), 3000, GST_CLOCK_TIME_NONE);
            encoder.begin_segment(0, GST_FORMAT_BYTES);
            encoder.push(pcm.data() + 3000, 3000, GST_CLOCK_TIME_NONE);
        } else {
            encoder.push_all(Samples(pcm.begin(), middle));
            encoder.push_all(Samples(middle, pcm.end()), GST_SECOND);
        }
        std::vector<std::uint8_t> bytes;
        std::size_t at = 0;
        for (const Sent &frame : encoder.end()) {
            const GstClockTime time = at < 3000 ? time_of(at, 44100) : GST_SECOND + time_of(at - 3000, 44100);
            expect_time(frame.pts, absent ? GST_CLOCK_TIME_NONE : time, absent ? 0 : 2);
            EXPECT_EQ(frame.clipped_at_start, absent && at == 0 ? 1024u : 0u);
            at += 1024;
            bytes.insert(bytes.end(), frame.bytes.begin(), frame.bytes.end());
        }
        const EncoderConfig config = config_of(TAVIK_MODE_MONO, 44100, 64000, 2, 0, absent ? 1 : 0);
        EXPECT_EQ(bytes, encode_stream(config, pcm).bytes());
    }
}

// The reported latency is the time from the first sample of a frame until the frame is sent, if single samples are
// pushed.
TEST(Latency, IsReportedAndTrue) {
    for (const unsigned rate : {48000u, 8000u}) {
        ElementHarness encoder(config_of(TAVIK_MODE_MONO, rate, 0));
        gst_harness_set_upstream_latency(encoder.harness(), 10 * GST_MSECOND);
        const Samples pcm = make_signal(SignalKind::dither, 1, 6000, rate, 1);
        std::size_t frames = 0;
        for (std::size_t k = 0; k < pcm.size(); ++k) {
            encoder.push(&pcm[k], 1, time_of(k, rate));
            for (const Sent &frame : encoder.take()) {
                ++frames;
                expect_time(time_of(k + 1, rate) - frame.pts, time_of(3072, rate), 2);
            }
        }
        EXPECT_EQ(frames, 3u);
        expect_time(gst_harness_query_latency(encoder.harness()), 10 * GST_MSECOND + time_of(3072, rate), 1);
    }
}

// One stream, then an event that ends it, then a stream that starts at another time.
TEST(Streams, FollowOneAnother) {
    constexpr GstClockTime start = 10 * GST_SECOND;
    const auto flush = [](ElementHarness &encoder) {
        encoder.send(gst_event_new_flush_start());
        encoder.send(gst_event_new_flush_stop(TRUE));
        encoder.begin_segment(start);
    };
    const auto begin_segment = [](ElementHarness &encoder) { encoder.begin_segment(0); };
    const EncoderConfig other = config_of(TAVIK_MODE_MONO, 16000, 23000);
    const auto change_format = [&](ElementHarness &encoder) { encoder.change_input(other); };
    const auto use_again = [](ElementHarness &encoder) {
        GstElement *element = encoder.harness()->element;
        ASSERT_EQ(gst_element_set_state(element, GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
        ASSERT_NE(gst_element_set_state(element, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
        encoder.send(gst_event_new_stream_start("again"));
        encoder.change_input(stereo);
        encoder.begin_segment(start);
    };
    // What happens to the samples of the first stream that are still in the encoder; downstream may refuse their
    // frames.
    enum class Rest { drained, discarded, refused };
    // The configuration and the start of the second stream: it has a priming frame only after a flush or a stop.
    for (const auto &[name, restart, first_rest, config, kind] : std::initializer_list<
             std::tuple<const char *, std::function<void(ElementHarness &)>, Rest, EncoderConfig, Start>>{
             {"flush", flush, Rest::discarded, stereo, Start::clipped},
             {"stop", use_again, Rest::discarded, stereo, Start::clipped},
             {"segment", begin_segment, Rest::drained, stereo, Start::plain},
             {"format", change_format, Rest::drained, other, Start::plain},
             {"segment, refused end", begin_segment, Rest::refused, stereo, Start::plain},
             {"format, refused end", change_format, Rest::refused, other, Start::plain}}) {
        SCOPED_TRACE(name);
        const Samples first = signal_for(stereo, 4321, SignalKind::white_noise);
        const Samples second = signal_for(config, 3500, SignalKind::transients);
        ElementHarness encoder(stereo, "priming=true");
        encoder.push_all(first, GST_SECOND);
        auto frames = encoder.take();
        EXPECT_LT(frames.size(), encode_stream(stereo, first).frames.size());

        gst_pad_set_active(encoder.harness()->sinkpad, first_rest == Rest::refused ? FALSE : TRUE);
        restart(encoder);
        encoder.push(second.data(), 1, start);  // caps take effect with the first sample after them
        gst_pad_set_active(encoder.harness()->sinkpad, TRUE);
        const auto rest = encoder.take();
        frames.insert(frames.end(), rest.begin(), rest.end());
        if (first_rest == Rest::drained) expect_stream(frames, stereo, first, GST_SECOND, Start::early);

        const Samples others(second.begin() + channel_count(config), second.end());
        encoder.push_all(others, start + time_of(1, config.sample_rate));
        expect_stream(encoder.end(), config, second, start, kind);
        const std::string rate = "rate=(int)" + std::to_string(config.sample_rate);
        EXPECT_NE(text_of(encoder.output_caps()).find(rate), std::string::npos);
    }
}

// Converters upstream see the number of channels that the mode accepts, and the rate that downstream accepts.
TEST(Input, IsLimitedByModeAndDownstream) {
    for (const auto &[properties, downstream, taken] :
         {std::tuple{"", "audio/mpeg", "channels=(int)[ 1, 2 ]"},
          {"channel-mode=mono", "audio/mpeg", "channels=(int)1"},
          {"channel-mode=stereo", "audio/mpeg", "channels=(int)2"},
          {"channel-mode=two-mono", "audio/mpeg,rate=16000", "rate=(int)16000, channels=(int)2"}}) {
        ElementHarness encoder(stereo, properties, downstream);
        const Owned<GstCaps> caps(gst_pad_peer_query_caps(encoder.harness()->srcpad, nullptr));
        EXPECT_NE(text_of(caps).find(taken), std::string::npos) << text_of(caps);
    }
}

TEST(Refusals, StateTheReason) {
    for (const auto &[input, properties, downstream, message] :
         std::initializer_list<std::tuple<EncoderConfig, const char *, const char *, const char *>>{
             {stereo, "bitrate=16000", "ANY", ""},
             {stereo, "bitrate=529200", "ANY", ""},
             {stereo, "bitrate=15999", "ANY", "bitrate 15999 must be 16000 to 529200 for 2 channels at 44100 Hz"},
             {mono, "bitrate=4294967295", "ANY", "bitrate 4294967295 must be 8000 to 264600 for 1 channel at 44100 Hz"},
             {stereo, "channel-mode=mono", "ANY", "channel-mode takes 1 channel, the input has 2"},
             {mono, "channel-mode=two-mono", "ANY", "channel-mode takes 2 channels, the input has 1"},
             {mono, "", "audio/mpeg,mpegversion=4,stream-format=adts",
              "downstream accepts none of AAC-LC raw frames (mpegversion 4), ADTS and ADIF (mpegversion 2) with this "
              "rate "
              "and number of channels"}}) {
        SCOPED_TRACE(properties);
        ElementHarness encoder(input, properties, downstream);
        const GstFlowReturn expected = *message == '\0' ? GST_FLOW_OK : GST_FLOW_NOT_NEGOTIATED;
        EXPECT_EQ(encoder.push(Samples(2048).data(), 1024, 0), expected);
        EXPECT_EQ(encoder.error(), message);
        EXPECT_TRUE(encoder.take().empty());
    }
}

// After a format was refused, the previous one still works.
TEST(Refusals, KeepTheOldFormat) {
    const EncoderConfig config = config_of(TAVIK_MODE_MONO, 48000, 96000);
    const Samples pcm = signal_for(config, 5000);
    ElementHarness encoder(config, "bitrate=96000");
    encoder.push_all(pcm);
    encoder.change_input(config_of(TAVIK_MODE_MONO, 8000, 0));
    EXPECT_EQ(encoder.push(pcm.data(), 1000, GST_SECOND), GST_FLOW_NOT_NEGOTIATED);
    encoder.take();
    encoder.change_input(config);
    EXPECT_EQ(encoder.push(pcm.data(), 5000, 2 * GST_SECOND), GST_FLOW_OK);
    expect_stream(encoder.end(), config, pcm, 2 * GST_SECOND, Start::plain);
}

// The tags of the input are kept, except those about its codec and bit rate, which are replaced.
TEST(Tags, HaveCodecAndBitRates) {
    for (const bool constant : {false, true}) {
        ElementHarness encoder(stereo, constant ? "rate-control=cbr bitrate=128000" : "bitrate=128000");
        encoder.send(gst_event_new_tag(
            gst_tag_list_new(GST_TAG_TITLE, "song", GST_TAG_AUDIO_CODEC, "Vorbis", GST_TAG_BITRATE, 500000, nullptr)));
        encoder.push_all(signal_for(stereo, 44100, SignalKind::white_noise));
        std::size_t largest = 0;
        for (const Sent &frame : encoder.end()) largest = std::max(largest, frame.bytes.size());
        const auto largest_rate = static_cast<guint>(largest * 8 * 44100 / 1024);

        Owned<GstEvent> last;
        while (Owned<GstEvent> event{gst_harness_try_pull_event(encoder.harness())}) {
            if (GST_EVENT_TYPE(event.get()) == GST_EVENT_TAG) last = std::move(event);
        }
        GstTagList *tags = nullptr;
        gst_event_parse_tag(last.get(), &tags);
        const std::string text = Owned<gchar>(gst_tag_list_to_string(tags)).get();
        EXPECT_NE(text.find("title=(string)song"), std::string::npos) << text;
        EXPECT_NE(text.find("audio-codec=(string)\"MPEG-4\\ AAC\""), std::string::npos) << text;
        EXPECT_NE(text.find("encoder=(string)Tavik"), std::string::npos) << text;
        const auto number = [&](const char *tag) {
            guint value = 0;
            return gst_tag_list_get_uint(tags, tag, &value) ? value : 0;
        };
        EXPECT_EQ(number(GST_TAG_NOMINAL_BITRATE), 128000u);
        EXPECT_EQ(number(GST_TAG_BITRATE), constant ? largest_rate : 0u);
        EXPECT_EQ(number(GST_TAG_MINIMUM_BITRATE), constant ? largest_rate : 0u);
        EXPECT_GE(number(GST_TAG_MAXIMUM_BITRATE), largest_rate);
        EXPECT_NEAR(number(GST_TAG_MAXIMUM_BITRATE), constant ? largest_rate : 1.44 * 128000, constant ? 0 : 1000);
    }
}

}  // namespace

// Loads only the plug-in under test and does not read the user's registry. GLib's critical messages abort the test.
int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    g_setenv("GST_REGISTRY", "/dev/null/none", TRUE);
    g_setenv("GST_PLUGIN_SYSTEM_PATH", "", TRUE);
    g_setenv("GST_PLUGIN_PATH", "", TRUE);
    g_setenv("GST_REGISTRY_FORK", "no", TRUE);
    g_setenv("G_DEBUG", "fatal-criticals", TRUE);
    gst_init(nullptr, nullptr);
    GstPlugin *plugin = gst_plugin_load_file(TAVIK_GSTREAMER_PLUGIN, nullptr);
    const int result = plugin == nullptr ? EXIT_FAILURE : RUN_ALL_TESTS();
    gst_clear_object(&plugin);
    gst_deinit();
    return result;
}
