// The element tavikenc between pads of a test: a GstHarness with an interface for these tests.
#pragma once

#include <gst/audio/audio.h>
#include <gst/check/gstharness.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "support/checked_encoder.h"
#include "tavik.h"

namespace tavik_test {

using Samples = std::vector<std::int16_t>;  // interleaved

// GStreamer's objects, released at the end of the scope.
struct Unref {
    void operator()(GstHarness *harness) const { gst_harness_teardown(harness); }
    void operator()(GstBus *bus) const { gst_object_unref(bus); }
    void operator()(gchar *text) const { g_free(text); }
    template <typename MiniObject>
    void operator()(MiniObject *object) const {
        gst_mini_object_unref(GST_MINI_OBJECT_CAST(object));
    }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Unref>;

inline GstClockTime time_of(std::uint64_t samples, unsigned rate) {
    return gst_util_uint64_scale_round(samples, GST_SECOND, rate);
}

inline std::string text_of(const Owned<GstCaps> &caps) { return Owned<gchar>(gst_caps_to_string(caps.get())).get(); }

// A buffer that the element sent.
struct Sent {
    std::vector<std::uint8_t> bytes;
    GstClockTime pts, dts, duration;
    std::uint64_t clipped_at_start, clipped_at_end;  // samples
};

class ElementHarness {
 public:
    // `input` has the rate and channels of the input, whose segment starts at 0; `properties` are as for
    // gst-launch-1.0; `downstream` are the caps that downstream accepts.
    explicit ElementHarness(const EncoderConfig &input, const std::string &properties = "",
                            const char *downstream = "ANY")
        : harness_(gst_harness_new_parse(("tavikenc " + properties).c_str())) {
        gst_element_set_bus(harness_->element, bus_.get());
        gst_harness_set_sink_caps_str(harness(), downstream);
        gst_harness_set_src_caps(harness(), input_caps(input).release());
    }

    GstHarness *harness() { return harness_.get(); }
    void send(GstEvent *event) { gst_harness_push_event(harness(), event); }
    void change_input(const EncoderConfig &input) { send(gst_event_new_caps(input_caps(input).get())); }
    void begin_segment(GstClockTime start, GstFormat format = GST_FORMAT_TIME) {
        GstSegment segment;
        gst_segment_init(&segment, format);
        segment.start = segment.time = start;
        send(gst_event_new_segment(&segment));
    }

    // The samples begin at an odd address, as they may after a parser.
    GstFlowReturn push(const std::int16_t *pcm, std::size_t samples, GstClockTime time) {
        const std::size_t bytes = samples * channels_ * sizeof *pcm;
        GstBuffer *buffer = gst_buffer_new_allocate(nullptr, 1 + bytes, nullptr);
        gst_buffer_fill(buffer, 1, pcm, bytes);
        gst_buffer_resize(buffer, 1, -1);
        GST_BUFFER_PTS(buffer) = time;
        return gst_harness_push(harness(), buffer);
    }
    // Pushes samples from time `start` on, in buffers whose size is unrelated to frames.
    void push_all(const Samples &pcm, GstClockTime start = 0) {
        constexpr std::size_t step = 441;
        const std::size_t samples = pcm.size() / channels_;
        for (std::size_t at = 0; at < samples; at += step) {
            push(pcm.data() + at * channels_, std::min(step, samples - at), start + time_of(at, rate_));
        }
    }

    // The frames that the element has sent since the last call.
    std::vector<Sent> take() {
        std::vector<Sent> frames;
        while (const Owned<GstBuffer> owner{gst_harness_try_pull(harness())}) {
            GstBuffer *buffer = owner.get();
            const auto *clipping = gst_buffer_get_audio_clipping_meta(buffer);
            const bool clips = clipping != nullptr && clipping->format == GST_FORMAT_DEFAULT;
            frames.push_back({std::vector<std::uint8_t>(gst_buffer_get_size(buffer)), GST_BUFFER_PTS(buffer),
                              GST_BUFFER_DTS(buffer), GST_BUFFER_DURATION(buffer), clips ? clipping->start : 0,
                              clips ? clipping->end : 0});
            gst_buffer_extract(buffer, 0, frames.back().bytes.data(), frames.back().bytes.size());
        }
        return frames;
    }
    std::vector<Sent> end() {
        send(gst_event_new_eos());
        return take();
    }

    Owned<GstCaps> output_caps() { return Owned<GstCaps>(gst_pad_get_current_caps(harness_->sinkpad)); }
    // The text of the first error that the element has posted.
    std::string error() {
        const Owned<GstMessage> message(gst_bus_pop_filtered(bus_.get(), GST_MESSAGE_ERROR));
        if (!message) return "";
        GError *error = nullptr;
        gst_message_parse_error(message.get(), &error, nullptr);
        std::string text = error->message;
        g_error_free(error);
        return text;
    }

 private:
    Owned<GstCaps> input_caps(const EncoderConfig &input) {
        rate_ = input.sample_rate;
        channels_ = channel_count(input);
        const std::string text =
            "audio/x-raw,format=" GST_AUDIO_NE(S16) ",layout=interleaved,rate=" + std::to_string(rate_) +
            ",channels=" + std::to_string(channels_) + ",channel-mask=(bitmask)" + (channels_ == 2 ? "3" : "4");
        return Owned<GstCaps>(gst_caps_from_string(text.c_str()));
    }

    Owned<GstBus> bus_{gst_bus_new()};
    Owned<GstHarness> harness_;
    unsigned rate_ = 0;
    unsigned channels_ = 0;
};

}  // namespace tavik_test
