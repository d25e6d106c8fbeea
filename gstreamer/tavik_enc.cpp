// The base class GstAudioEncoder collects blocks of 1024 samples and computes time stamps: a frame gets the time of the
// oldest input samples that no earlier frame has been counted for. Those are the samples that the frame decodes to.
#include "tavik_enc.h"

#include <gst/audio/audio.h>
#include <tavik.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>

#include "bit_rates.h"
#include "caps.h"
#include "settings.h"

GST_DEBUG_CATEGORY_STATIC(tavikenc_debug);  // NOLINT: GStreamer's macro
#define GST_CAT_DEFAULT tavikenc_debug

namespace tavik {
namespace {

// Delay between an input sample and the frame that completes it: collecting a frame, overlap with the next, lookahead.
constexpr uint64_t latency_samples = 3 * TAVIK_FRAME_LENGTH;

struct Stream {
    EncoderContext encoder{};
    EncoderConfig config{};
    bool follows_another = false;  // the next stream continues after one that was sent, without a flush in between
    bool running = false;          // the encoder holds samples
    bool priming_next = false;     // the next frame is the priming frame
    uint32_t unsent_samples = 0;   // input samples per channel that no sent frame has been counted for
    uint32_t frame_samples = 0;    // input samples per channel that the frame being sent is counted for
};

}  // namespace
}  // namespace tavik

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): GObject allocates zeroed instances; see gst_tavik_enc_init
struct _GstTavikEnc {
    GstAudioEncoder parent_instance;
    tavik::Settings settings;               // guarded by the object lock
    std::unique_ptr<tavik::Stream> stream;  // never null; guarded by the encoder's stream lock
};

G_DEFINE_FINAL_TYPE(GstTavikEnc, gst_tavik_enc, GST_TYPE_AUDIO_ENCODER)
GST_ELEMENT_REGISTER_DEFINE(tavikenc, "tavikenc", GST_RANK_NONE, GST_TYPE_TAVIK_ENC)

namespace tavik {
namespace {

Settings current_settings(GstTavikEnc *self) {
    GST_OBJECT_LOCK(self);
    const Settings settings = self->settings;
    GST_OBJECT_UNLOCK(self);
    return settings;
}

GstClockTime duration_of(uint64_t samples, uint32_t sample_rate) {
    return gst_util_uint64_scale_round(samples, GST_SECOND, sample_rate);
}

// ---- Restarts

// Discards the samples that the encoder holds, as the base class does with its own.
void reset_stream(GstAudioEncoder *base) {
    GST_AUDIO_ENCODER_STREAM_LOCK(base);
    Stream &stream = *GST_TAVIK_ENC(base)->stream;
    stream.running = false;
    stream.unsent_samples = 0;
    GST_AUDIO_ENCODER_STREAM_UNLOCK(base);
}

// After a flush or a stop, the next stream starts like the first one.
void flush(GstAudioEncoder *base) {
    GST_AUDIO_ENCODER_STREAM_LOCK(base);
    reset_stream(base);
    GST_TAVIK_ENC(base)->stream->follows_another = false;
    GST_AUDIO_ENCODER_STREAM_UNLOCK(base);
}

gboolean stop(GstAudioEncoder *base) {
    flush(base);
    return TRUE;
}

gboolean sink_event(GstAudioEncoder *base, GstEvent *event) {
    const GstSegment *segment = nullptr;
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) gst_event_parse_segment(event, &segment);
    // A new segment drains the stream before it. The base class ignores segments in other formats than time.
    const bool drains = segment != nullptr && segment->format == GST_FORMAT_TIME;
    const gboolean result = GST_AUDIO_ENCODER_CLASS(gst_tavik_enc_parent_class)->sink_event(base, event);
    if (drains) reset_stream(base);
    return result;
}

// Discards samples whose frames downstream has refused. Only a new segment makes the base class discard them too.
void drop_unsent_samples(GstAudioEncoder *base) {
    if (GST_TAVIK_ENC(base)->stream->unsent_samples == 0) return;
    sink_event(base, gst_event_new_segment(&base->input_segment));
}

// ---- Configuration

// Posts an error message on the bus; returns FALSE.
gboolean post_error(GstTavikEnc *self, GQuark domain, gint code, const std::string &text) {
    gst_element_message_full(GST_ELEMENT(self), GST_MESSAGE_ERROR, domain, code, g_strdup(text.c_str()), nullptr,
                             __FILE__, GST_FUNCTION, __LINE__);
    return FALSE;
}

// Describes what is wrong with the settings for this input; empty if nothing is.
std::string validate(const Settings &settings, uint32_t channels, uint32_t sample_rate) {
    const ChannelRange range = channel_range(settings);
    if (static_cast<gint>(channels) < range.min || static_cast<gint>(channels) > range.max) {
        return "channel-mode takes " + std::to_string(range.max) + (range.max == 1 ? " channel" : " channels") +
               ", the input has " + std::to_string(channels);
    }
    if (settings.bit_rate != 0 && !valid_bit_rates(channels, sample_rate).contains(settings.bit_rate)) {
        return "bitrate " + std::to_string(settings.bit_rate) + " " + bit_rate_rule(channels, sample_rate);
    }
    return {};
}

// The header_type that downstream accepts. While nothing is linked, all are accepted: raw frames.
std::optional<uint32_t> negotiated_header_type(GstAudioEncoder *base, const EncoderConfig &config) {
    const Caps allowed(gst_pad_peer_query_caps(GST_AUDIO_ENCODER_SRC_PAD(base), nullptr));
    return choose_header_type(config, allowed.get());
}

// Sets the caps, tags and latency of the output.
void set_output_format(GstAudioEncoder *base, const EncoderConfig &config) {
    gst_audio_encoder_set_output_format(base, stream_caps(config).get());
    GstTagList *tags = stream_tags(config);
    gst_audio_encoder_merge_tags(base, tags, GST_TAG_MERGE_REPLACE);
    gst_tag_list_unref(tags);

    const GstClockTime latency = gst_util_uint64_scale_ceil(latency_samples, GST_SECOND, config.sample_rate);
    gst_audio_encoder_set_latency(base, latency, latency);
}

// Sets the number of samples that the base class passes to handle_frame(). It resets this for each new format, even for
// one that is refused.
void set_block_size(GstAudioEncoder *base) {
    gst_audio_encoder_set_frame_samples_min(base, TAVIK_FRAME_LENGTH);
    gst_audio_encoder_set_frame_samples_max(base, TAVIK_FRAME_LENGTH);
    gst_audio_encoder_set_frame_max(base, 1);
}

void log_configuration(GstTavikEnc *self, const EncoderConfig &config) {
    GST_INFO_OBJECT(self, "%u Hz, channel_mode %u, header_type %u, %u bit/s per channel, constant_rate %u",
                    config.sample_rate, config.channel_mode, config.header_type, config.bit_rate, config.constant_rate);
}

// Called after the previous stream has been drained, unless downstream refused its frames.
gboolean set_format(GstAudioEncoder *base, GstAudioInfo *info) {
    set_block_size(base);
    drop_unsent_samples(base);
    GstTavikEnc *self = GST_TAVIK_ENC(base);
    const Settings settings = current_settings(self);
    const auto channels = static_cast<uint32_t>(GST_AUDIO_INFO_CHANNELS(info));
    const auto sample_rate = static_cast<uint32_t>(GST_AUDIO_INFO_RATE(info));

    const std::string problem = validate(settings, channels, sample_rate);
    if (!problem.empty()) return post_error(self, GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_SETTINGS, problem);
    EncoderConfig config = make_config(settings, channels, sample_rate, TAVIK_HEADER_NONE);
    const auto header_type = negotiated_header_type(base, config);
    if (!header_type) {
        return post_error(self, GST_CORE_ERROR, GST_CORE_ERROR_NEGOTIATION,
                          "downstream accepts none of AAC-LC raw frames (mpegversion 4), ADTS and ADIF (mpegversion 2) "
                          "with this rate and number of channels");
    }
    config.header_type = *header_type;
    self->stream->config = config;
    set_output_format(base, config);
    log_configuration(self, config);
    return TRUE;
}

// Offers only the number of channels that the mode accepts, so that upstream converters produce it.
GstCaps *get_caps(GstAudioEncoder *base, GstCaps *filter) {
    const ChannelRange range = channel_range(current_settings(GST_TAVIK_ENC(base)));
    const Caps caps = sink_caps();
    if (range.min == range.max) {
        gst_caps_set_simple(caps.get(), "channels", G_TYPE_INT, range.max, nullptr);
    }
    return gst_audio_encoder_proxy_getcaps(base, caps.get(), filter);
}

// ---- Frames

// Sends a frame. The priming frame is counted for no input samples, and neither is the second frame of a stream that
// has only one block.
GstFlowReturn send(GstTavikEnc *self, const uint8_t *frame, uint32_t bytes) {
    Stream &stream = *self->stream;
    GstAudioEncoder *base = GST_AUDIO_ENCODER(self);
    stream.frame_samples = stream.priming_next ? 0 : std::min<uint32_t>(stream.unsent_samples, TAVIK_FRAME_LENGTH);
    stream.unsent_samples -= stream.frame_samples;

    GstBuffer *buffer = gst_audio_encoder_allocate_output_buffer(base, bytes);
    gst_buffer_fill(buffer, 0, frame, bytes);
    const GstFlowReturn result = gst_audio_encoder_finish_frame(base, buffer, static_cast<gint>(stream.frame_samples));
    stream.priming_next = false;
    return result;
}

// Encodes a block, which is empty at the end of the stream, and sends the frame if there is one.
GstFlowReturn encode(GstTavikEnc *self, const int16_t *pcm, uint32_t samples) {
    std::array<uint8_t, TAVIK_MAX_FRAME_BYTES> frame;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    uint32_t bytes = 0;
    TAVIK_Encode(&self->stream->encoder, pcm, &samples, frame.data(), &bytes);
    return bytes == 0 ? GST_FLOW_OK : send(self, frame.data(), bytes);
}

// Starts a stream. After another stream there is no time for a priming frame.
void begin_stream(Stream &stream) {
    EncoderConfig config = stream.config;
    if (stream.follows_another) config.emit_priming_frame = 0;
    stream.follows_another = true;
    stream.running = true;
    stream.priming_next = config.emit_priming_frame == 1;
    TAVIK_Init(&stream.encoder, &config);
}

// Sends all remaining frames, or those before the first one that downstream refuses.
GstFlowReturn drain(GstTavikEnc *self) {
    Stream &stream = *self->stream;
    GstFlowReturn result = GST_FLOW_OK;
    while (stream.running && result == GST_FLOW_OK) {
        const int16_t none = 0;
        result = encode(self, &none, 0);
        stream.running = stream.encoder.status != TAVIK_STATUS_END_OF_STREAM;
    }
    stream.running = false;
    return result;
}

// `buffer` is null to drain the stream. Samples after that start a new stream.
GstFlowReturn handle_frame(GstAudioEncoder *base, GstBuffer *buffer) {
    GstTavikEnc *self = GST_TAVIK_ENC(base);
    if (buffer == nullptr) return drain(self);
    Stream &stream = *self->stream;
    if (!stream.running) begin_stream(stream);

    // Copied, because the samples in a buffer may be unaligned.
    std::array<int16_t, 2 * TAVIK_FRAME_LENGTH> pcm;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const gsize bytes = gst_buffer_extract(buffer, 0, pcm.data(), sizeof pcm);
    const auto samples = static_cast<uint32_t>(bytes / (sizeof(int16_t) * channel_count(stream.config)));
    stream.unsent_samples += samples;
    return encode(self, pcm.data(), samples);
}

// ---- Times

// Moves the priming frame, which has the time of the first sample, one frame earlier, if that is within the segment.
// Otherwise it gets no duration, and decoders are asked to clip its samples.
void place_priming_frame(const GstSegment &segment, uint32_t sample_rate, GstBuffer *frame) {
    const GstClockTime duration = duration_of(TAVIK_FRAME_LENGTH, sample_rate);
    if (GST_BUFFER_PTS_IS_VALID(frame) && GST_BUFFER_PTS(frame) >= segment.start + duration) {
        GST_BUFFER_PTS(frame) -= duration;
        GST_BUFFER_DTS(frame) = GST_BUFFER_PTS(frame);
        GST_BUFFER_DURATION(frame) = duration;
    } else {
        GST_BUFFER_DURATION(frame) = 0;
        gst_buffer_add_audio_clipping_meta(frame, GST_FORMAT_DEFAULT, TAVIK_FRAME_LENGTH, 0);
    }
}

// Corrects times and durations that the base class has set; it does not expect frames that are counted for no samples.
GstFlowReturn pre_push(GstAudioEncoder *base, GstBuffer **buffer) {
    const Stream &stream = *GST_TAVIK_ENC(base)->stream;
    GstBuffer *frame = *buffer;
    if (stream.priming_next) {
        place_priming_frame(base->output_segment, stream.config.sample_rate, frame);
    } else if (stream.frame_samples < TAVIK_FRAME_LENGTH) {
        if (stream.frame_samples == 0) GST_BUFFER_DURATION(frame) = 0;
        gst_buffer_add_audio_clipping_meta(frame, GST_FORMAT_DEFAULT, 0, TAVIK_FRAME_LENGTH - stream.frame_samples);
    }
    return GST_FLOW_OK;
}

// ---- The object

void set_property(GObject *object, guint id, const GValue *value, GParamSpec *property) {
    GST_OBJECT_LOCK(object);
    const bool known = set_setting(GST_TAVIK_ENC(object)->settings, id, value);
    GST_OBJECT_UNLOCK(object);
    if (!known) G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
}

void get_property(GObject *object, guint id, GValue *value, GParamSpec *property) {
    if (!get_setting(current_settings(GST_TAVIK_ENC(object)), id, value)) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    }
}

void add_pad_template(GstElementClass *element_class, const char *name, GstPadDirection direction, const Caps &caps) {
    gst_element_class_add_pad_template(element_class,
                                       gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps.get()));
}

}  // namespace
}  // namespace tavik

static void gst_tavik_enc_init(GstTavikEnc *self) {
    std::construct_at(&self->settings);
    std::construct_at(&self->stream, std::make_unique<tavik::Stream>());
    // Input that the settings do not allow must reach set_format(), which reports the reason.
    GST_PAD_SET_ACCEPT_TEMPLATE(GST_AUDIO_ENCODER_SINK_PAD(self));
}

static void gst_tavik_enc_finalize(GObject *object) {
    std::destroy_at(&GST_TAVIK_ENC(object)->stream);
    G_OBJECT_CLASS(gst_tavik_enc_parent_class)->finalize(object);
}

static void gst_tavik_enc_class_init(GstTavikEncClass *klass) {
    GST_DEBUG_CATEGORY_INIT(tavikenc_debug, "tavikenc", 0, "AAC-LC encoder");

    GObjectClass *object_class = G_OBJECT_CLASS(klass);
    object_class->set_property = tavik::set_property;
    object_class->get_property = tavik::get_property;
    object_class->finalize = gst_tavik_enc_finalize;
    tavik::install_properties(object_class);

    GstElementClass *element_class = GST_ELEMENT_CLASS(klass);
    tavik::add_pad_template(element_class, GST_AUDIO_ENCODER_SINK_NAME, GST_PAD_SINK, tavik::sink_caps());
    tavik::add_pad_template(element_class, GST_AUDIO_ENCODER_SRC_NAME, GST_PAD_SRC, tavik::source_caps());
    gst_element_class_set_static_metadata(
        element_class, "Tavik AAC-LC encoder", "Codec/Encoder/Audio",
        "Encodes 16-bit audio as MPEG-4 AAC Low Complexity, in fixed-point arithmetic",
        "Tavik maintainers <maintainers@tavik.example>");

    GstAudioEncoderClass *encoder_class = GST_AUDIO_ENCODER_CLASS(klass);
    encoder_class->set_format = tavik::set_format;
    encoder_class->getcaps = tavik::get_caps;
    encoder_class->handle_frame = tavik::handle_frame;
    encoder_class->flush = tavik::flush;
    encoder_class->stop = tavik::stop;
    encoder_class->pre_push = tavik::pre_push;
    encoder_class->sink_event = tavik::sink_event;
}
