// ADTS headers carry ID 1 and ADIF is of the same standard (ISO/IEC 13818-7): mpegversion 2. Raw frames are the same in
// both; as MPEG-4 (ISO/IEC 14496-3) they have an AudioSpecificConfig.
#include "caps.h"

#include <gst/audio/audio.h>
#include <gst/pbutils/pbutils.h>

#include <algorithm>
#include <array>
#include <vector>

#include "audio_specific_config.h"
#include "bit_rates.h"
#include "supported_formats.h"

namespace tavik {
namespace {

struct Form {
    uint32_t header_type;
    gint mpegversion;
    const char *stream_format;
};

constexpr Form raw = {TAVIK_HEADER_NONE, 4, "raw"};
constexpr Form adts = {TAVIK_HEADER_ADTS, 2, "adts"};
constexpr Form adif = {TAVIK_HEADER_ADIF, 2, "adif"};
using Forms = std::array<Form, 3>;
constexpr Forms forms = {raw, adts, adif};  // in order of preference

// Adds the sampling rates and numbers of channels that the encoder supports, the highest rate first as the preferred one.
Caps with_rates_and_channels(Caps caps) {
    GValue list = G_VALUE_INIT;
    gst_value_list_init(&list, supported_rates.size());
    std::for_each(supported_rates.rbegin(), supported_rates.rend(), [&list](uint32_t rate) {
        GValue value = G_VALUE_INIT;
        g_value_init(&value, G_TYPE_INT);
        g_value_set_int(&value, static_cast<gint>(rate));
        gst_value_list_append_and_take_value(&list, &value);
    });
    gst_caps_set_value(caps.get(), "rate", &list);
    g_value_unset(&list);
    gst_caps_set_simple(caps.get(), "channels", GST_TYPE_INT_RANGE, 1, 2, nullptr);
    return caps;
}

Caps form_caps(const Form &form) {
    return Caps(gst_caps_new_simple("audio/mpeg", "mpegversion", G_TYPE_INT, form.mpegversion, "stream-format",
                                    G_TYPE_STRING, form.stream_format, "framed", G_TYPE_BOOLEAN, TRUE, nullptr));
}

const Form &form_of(uint32_t header_type) {
    for (const Form &form : forms) {
        if (form.header_type == header_type) return form;
    }
    g_assert_not_reached();
}

// Whether the caps are of ADTS frames by name: not only because they leave the form open, and not those of a parser,
// which takes what is not framed too.
bool names_adts_frames(const GstCaps *caps) {
    const Caps wanted = form_caps(adts);
    for (guint k = 0; k < gst_caps_get_size(caps); ++k) {
        const GstStructure *structure = gst_caps_get_structure(caps, k);
        if (gst_structure_has_field(structure, "stream-format") != FALSE &&
            gst_structure_has_field(structure, "framed") != FALSE &&
            gst_structure_can_intersect(structure, gst_caps_get_structure(wanted.get(), 0)) != FALSE) {
            return true;
        }
    }
    return false;
}

// A muxer that takes both raw frames and ADTS, as that of MPEG-TS, writes ADTS, and headers of its own could not
// describe two independent channels: only the encoder's ADTS frames have a program_config_element. GStreamer's parser
// does not know those, and so gets raw frames.
Forms preferred_forms(const EncoderConfig &config, const GstCaps *allowed) {
    const bool self_contained = config.channel_mode == TAVIK_MODE_TWO_MONO && names_adts_frames(allowed);
    return self_contained ? Forms{adts, raw, adif} : forms;
}

// Bit/s of frames of this size.
guint frame_bit_rate(uint32_t frame_bytes, uint32_t sample_rate) {
    return static_cast<guint>(uint64_t{frame_bytes} * 8 * sample_rate / TAVIK_FRAME_LENGTH);
}

}  // namespace

Caps sink_caps() {
    return with_rates_and_channels(Caps(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, GST_AUDIO_NE(S16),
                                                            "layout", G_TYPE_STRING, "interleaved", nullptr)));
}

Caps source_caps() {
    Caps caps(gst_caps_new_empty());
    for (const Form &form : forms) gst_caps_append(caps.get(), with_rates_and_channels(form_caps(form)).release());
    return caps;
}

Caps stream_caps(const EncoderConfig &config) {
    Caps caps = form_caps(form_of(config.header_type));
    gst_caps_set_simple(caps.get(), "rate", G_TYPE_INT, static_cast<gint>(config.sample_rate), "channels", G_TYPE_INT,
                        static_cast<gint>(channel_count(config)), nullptr);
    const std::vector<uint8_t> description = audio_specific_config(config);
    gst_codec_utils_aac_caps_set_level_and_profile(caps.get(), description.data(),
                                                   static_cast<guint>(description.size()));
    if (config.header_type == TAVIK_HEADER_NONE) {
        GstBuffer *codec_data = gst_buffer_new_memdup(description.data(), description.size());
        gst_caps_set_simple(caps.get(), "codec_data", GST_TYPE_BUFFER, codec_data, nullptr);
        gst_buffer_unref(codec_data);
    }
    return caps;
}

std::optional<uint32_t> choose_header_type(EncoderConfig config, const GstCaps *allowed) {
    for (const Form &form : preferred_forms(config, allowed)) {
        config.header_type = form.header_type;
        if (gst_caps_can_intersect(stream_caps(config).get(), allowed) != FALSE) return form.header_type;
    }
    return std::nullopt;
}

GstTagList *stream_tags(const EncoderConfig &config) {
    GstTagList *tags = gst_tag_list_new_empty();
    gst_pb_utils_add_codec_description_to_tag_list(tags, GST_TAG_AUDIO_CODEC, stream_caps(config).get());
    const auto add = [&](const char *tag, guint value) {
        gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, tag, value, nullptr);
    };
    add(GST_TAG_NOMINAL_BITRATE, config.bit_rate * channel_count(config));
    if (config.constant_rate == 1) {
        const guint bit_rate = frame_bit_rate(mean_frame_bytes(config), config.sample_rate);
        for (const char *tag : {GST_TAG_BITRATE, GST_TAG_MINIMUM_BITRATE, GST_TAG_MAXIMUM_BITRATE}) add(tag, bit_rate);
    } else {
        add(GST_TAG_MAXIMUM_BITRATE, frame_bit_rate(largest_frame_bytes(config), config.sample_rate));
    }
    gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, GST_TAG_ENCODER, "Tavik", GST_TAG_ENCODER_VERSION,
                     TAVIK_get_version(), nullptr);
    return tags;
}

}  // namespace tavik
