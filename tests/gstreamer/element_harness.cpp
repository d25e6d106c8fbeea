// A GstHarness, in the terms of these tests.
#include "element_harness.h"

#include <gst/audio/audio.h>

#include <algorithm>
#include <utility>

namespace tavik_test {

GstClockTime time_of(std::uint64_t samples, unsigned rate) {
    return gst_util_uint64_scale_round(samples, GST_SECOND, rate);
}

std::string text_of(const GstCaps *caps) { return Owned<gchar>(gst_caps_to_string(caps)).get(); }

ElementHarness::ElementHarness(const std::string &properties, const char *downstream)
    : element_(gst_parse_launch(("tavikenc " + properties).c_str(), nullptr)),
      harness_(gst_harness_new_with_element(element_.get(), "sink", "src")),
      bus_(gst_bus_new()) {
    gst_element_set_bus(element_.get(), bus_.get());
    if (downstream != nullptr) gst_harness_set_sink_caps_str(harness_, downstream);
}

ElementHarness::~ElementHarness() {
    gst_element_set_bus(element_.get(), nullptr);
    gst_harness_teardown(harness_);
}

void ElementHarness::set_input(unsigned rate, unsigned channels) {
    gst_harness_set_src_caps(harness_, input_caps(rate, channels).release());
}

void ElementHarness::change_input(unsigned rate, unsigned channels) {
    send(gst_event_new_caps(input_caps(rate, channels).get()));
}

GstFlowReturn ElementHarness::push(const std::int16_t *pcm, std::size_t samples, GstClockTime time) {
    GstBuffer *buffer = gst_buffer_new_memdup(pcm, samples * channels_ * sizeof *pcm);
    GST_BUFFER_PTS(buffer) = time;
    return gst_harness_push(harness_, buffer);
}

GstFlowReturn ElementHarness::push_all(const Samples &pcm, GstClockTime start) {
    constexpr std::size_t step = 441;
    const std::size_t samples = pcm.size() / channels_;
    GstFlowReturn result = GST_FLOW_OK;
    for (std::size_t at = 0; at < samples && result == GST_FLOW_OK; at += step) {
        result = push(pcm.data() + at * channels_, std::min(step, samples - at), start + time_of(at, rate_));
    }
    return result;
}

std::vector<Sent> ElementHarness::take() {
    std::vector<Sent> frames;
    while (const Owned<GstBuffer> buffer{gst_harness_try_pull(harness_)}) {
        Bytes bytes(gst_buffer_get_size(buffer.get()));
        gst_buffer_extract(buffer.get(), 0, bytes.data(), bytes.size());
        const auto *clipping = gst_buffer_get_audio_clipping_meta(buffer.get());
        const bool samples = clipping != nullptr && clipping->format == GST_FORMAT_DEFAULT;
        frames.push_back({std::move(bytes), GST_BUFFER_PTS(buffer.get()), GST_BUFFER_DTS(buffer.get()),
                          GST_BUFFER_DURATION(buffer.get()), samples ? clipping->start : 0,
                          samples ? clipping->end : 0});
    }
    return frames;
}

Owned<GstEvent> ElementHarness::event(GstEventType type) {
    Owned<GstEvent> found;
    do {
        found.reset(gst_harness_try_pull_event(harness_));
    } while (found && GST_EVENT_TYPE(found.get()) != type);
    return found;
}

Owned<GstCaps> ElementHarness::output_caps() { return Owned<GstCaps>(gst_pad_get_current_caps(harness_->sinkpad)); }

std::string ElementHarness::error() {
    const Owned<GstMessage> message(gst_bus_pop_filtered(bus_.get(), GST_MESSAGE_ERROR));
    if (!message) return "";
    GError *error = nullptr;
    gst_message_parse_error(message.get(), &error, nullptr);
    std::string text = error->message;
    g_error_free(error);
    return text;
}

Owned<GstCaps> ElementHarness::input_caps(unsigned rate, unsigned channels) {
    rate_ = rate;
    channels_ = channels;
    return Owned<GstCaps>(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, GST_AUDIO_NE(S16), "layout",
                                              G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT, static_cast<gint>(rate),
                                              "channels", G_TYPE_INT, static_cast<gint>(channels), "channel-mask",
                                              GST_TYPE_BITMASK, guint64{channels == 2 ? 3u : 4u}, nullptr));
}

}  // namespace tavik_test
