// Caps of the element's pads, and tags of its stream.
#pragma once

#include <gst/gst.h>
#include <tavik.h>

#include <memory>
#include <optional>

namespace tavik {

struct CapsUnref {
    void operator()(GstCaps *caps) const { gst_caps_unref(caps); }
};
using Caps = std::unique_ptr<GstCaps, CapsUnref>;

// Caps of the pad templates. Sink: interleaved 16-bit samples in native byte order. Source: all stream formats, the
// preferred one first.
Caps sink_caps();
Caps source_caps();

// Caps of the stream that a configuration produces. Raw frames have the AudioSpecificConfig as codec_data.
Caps stream_caps(const EncoderConfig &config);

// The preferred header_type among those that `allowed` accepts; nothing if it accepts none.
std::optional<uint32_t> choose_header_type(EncoderConfig config, const GstCaps *allowed);

// Tags with the codec and the bit rates of a stream; the caller releases them.
GstTagList *stream_tags(const EncoderConfig &config);

}  // namespace tavik
