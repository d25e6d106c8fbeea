// Media types of the element's pads.
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

// Of the pad templates: interleaved 16-bit samples in the machine's byte order, and what comes out, the form that is
// taken first in front.
Caps sink_caps();
Caps source_caps();

// What describes the stream of a configuration: raw frames with the AudioSpecificConfig as codec_data, ADTS or ADIF.
Caps stream_caps(const EncoderConfig &config);

// The first form of stream of the configuration, as a header_type, that `allowed` has room for.
std::optional<uint32_t> choose_header_type(EncoderConfig config, const GstCaps *allowed);

// Codec and bit rates of a stream, for the tags of files and the messages of the pipeline.
GstTagList *stream_tags(const EncoderConfig &config);

}  // namespace tavik
