// The element tavikenc between pads of a test.
#pragma once

#include <gst/check/gstharness.h>
#include <gst/gst.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tavik_test {

using Bytes = std::vector<std::uint8_t>;
using Samples = std::vector<std::int16_t>;  // interleaved

// GStreamer's objects, released at the end of the scope.
struct Unref {
    void operator()(GstBuffer *buffer) const { gst_buffer_unref(buffer); }
    void operator()(GstEvent *event) const { gst_event_unref(event); }
    void operator()(GstCaps *caps) const { gst_caps_unref(caps); }
    void operator()(GstMessage *message) const { gst_message_unref(message); }
    void operator()(GstBus *bus) const { gst_object_unref(bus); }
    void operator()(GstElement *element) const { gst_object_unref(element); }
    void operator()(gchar *text) const { g_free(text); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Unref>;

GstClockTime time_of(std::uint64_t samples, unsigned rate);

std::string text_of(const GstCaps *caps);

// A buffer that the element sent.
struct Sent {
    Bytes bytes;
    GstClockTime pts, dts, duration;
    std::uint64_t clipped_at_start, clipped_at_end;  // samples
};

class ElementHarness {
 public:
    // Properties as gst-launch-1.0 takes them; caps of downstream, any if absent.
    explicit ElementHarness(const std::string &properties = "", const char *downstream = nullptr);
    ~ElementHarness();
    ElementHarness(const ElementHarness &) = delete;
    ElementHarness &operator=(const ElementHarness &) = delete;

    GstHarness *harness() { return harness_; }
    bool send(GstEvent *event) { return gst_harness_push_event(harness_, event) != FALSE; }

    // Caps and a segment from 0.
    void set_input(unsigned rate, unsigned channels);
    // Caps alone.
    void change_input(unsigned rate, unsigned channels);

    GstFlowReturn push(const std::int16_t *pcm, std::size_t samples, GstClockTime time);
    // Samples from `start` on in buffers of a size that suits no frame; the first result that is not good.
    GstFlowReturn push_all(const Samples &pcm, GstClockTime start = 0);
    bool end() { return send(gst_event_new_eos()); }

    // What the element has sent since the last call.
    std::vector<Sent> take();
    // The next event of a kind that it has sent; null if there is none.
    Owned<GstEvent> event(GstEventType type);
    Owned<GstCaps> output_caps();
    // The text of the first error that it has posted.
    std::string error();

 private:
    Owned<GstCaps> input_caps(unsigned rate, unsigned channels);

    Owned<GstElement> element_;
    GstHarness *harness_;
    Owned<GstBus> bus_;
    unsigned rate_ = 0;
    unsigned channels_ = 0;
};

}  // namespace tavik_test
