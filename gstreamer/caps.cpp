// mpegversion: ADTS headers have ID 1 (MPEG-2), and ADIF belongs to MPEG-2 as well. Raw frames are the same in MPEG-2
// and MPEG-4; they are declared as MPEG-4, which has the AudioSpecificConfig for codec_data.
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

struct StreamFormat {
    uint32_t header_type;
    gint mpegversion;
    const char *stream_format;
};

constexpr StreamFormat raw = {TAVIK_HEADER_NONE, 4, "raw"};
constexpr StreamFormat adts = {TAVIK_HEADER_ADTS, 2, "adts"};
constexpr StreamFormat adif = {TAVIK_HEADER_ADIF, 2, "adif"};
using StreamFormats = std::array<StreamFormat, 3>;
constexpr StreamFormats stream_formats = {raw, adts, adif};  // in order of preference

// Adds the sampling rates and numbers of channels that the encoder supports. The highest rate is preferred.
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

Caps format_caps(const StreamFormat &format) {
    return Caps(gst_caps_new_simple("audio/mpeg", "mpegversion", G_TYPE_INT, format.mpegversion, "stream-format",
                                    G_TYPE_STRING, format.stream_format, "framed", G_TYPE_BOOLEAN, TRUE, nullptr));
}

const StreamFormat &format_of_header(uint32_t header_type) {
    for (const StreamFormat &format : stream_formats) {
        if (format.header_type == header_type) return format;
    }
    g_assert_not_reached();
}

// Whether some of the caps explicitly ask for framed ADTS. Caps without stream-format do not, nor do those of a parser,
// which leave `framed` open.
bool requests_adts_frames(const GstCaps *caps) {
    const Caps wanted = format_caps(adts);
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

// The MPEG-TS muxer accepts raw frames and ADTS and writes ADTS. The ADTS headers that it makes for raw frames cannot
// describe two independent channels, while the encoder's ADTS frames contain a program_config_element: they are
// preferred there. GStreamer's parser does not support program_config_elements and gets raw frames.
StreamFormats preferred_formats(const EncoderConfig &config, const GstCaps *allowed) {
    const bool prefers_adts = config.channel_mode == TAVIK_MODE_TWO_MONO && requests_adts_frames(allowed);
    return prefers_adts ? StreamFormats{adts, raw, adif} : stream_formats;
}

// Bit rate in bit/s if all frames have this size.
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
    for (const StreamFormat &format : stream_formats) {
        gst_caps_append(caps.get(), with_rates_and_channels(format_caps(format)).release());
    }
    return caps;
}

Caps stream_caps(const EncoderConfig &config) {
    Caps caps = format_caps(format_of_header(config.header_type));
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
    for (const StreamFormat &format : preferred_formats(config, allowed)) {
        config.header_type = format.header_type;
        if (gst_caps_can_intersect(stream_caps(config).get(), allowed) != FALSE) return format.header_type;
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
        add(GST_TAG_MAXIMUM_BITRATE, frame_bit_rate(max_frame_bytes(config), config.sample_rate));
    }
    gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, GST_TAG_ENCODER, "Tavik", GST_TAG_ENCODER_VERSION,
                     TAVIK_get_version(), nullptr);
    return tags;
}

}  // namespace tavik
