#include "support/reference_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <string>
#include <tuple>

#include "support/checked_encoder.h"
#include "support/require.h"
#include "support/stream_harness.h"

namespace tavik_test {
namespace {

// What the decoder has said, warnings included.
std::string &complaint() {
    static std::string text;
    return text;
}

void note_complaint(void *, int level, const char *format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    complaint() += text;
}

void require_of_decoder(bool condition, const char *message) {
    require(condition, "the reference decoder: ", message, ' ', complaint());
}

template <auto free>
struct Free {
    template <typename T>
    void operator()(T *object) const {
        free(&object);
    }
};
using Codec = std::unique_ptr<AVCodecContext, Free<avcodec_free_context>>;

Codec open_codec(const EncoderConfig &config) {
    const AVCodec *codec = avcodec_find_decoder_by_name("aac");
    require_of_decoder(codec != nullptr, "is missing");
    Codec context(avcodec_alloc_context3(codec));
    context->thread_count = 1;
    context->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    if (config.header_type != TAVIK_HEADER_ADTS) {
        const auto description = audio_specific_config(config);
        context->extradata = static_cast<std::uint8_t *>(av_mallocz(description.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        context->extradata_size = static_cast<int>(description.size());
        std::copy(description.begin(), description.end(), context->extradata);
    }
    require_of_decoder(avcodec_open2(context.get(), codec, nullptr) == 0, "cannot be opened");
    return context;
}

}  // namespace

// 5 bits audioObjectType, 4 bits index, 4 bits channel_configuration, three zeros; for two independent channels a
// program_config_element of 7 bytes follows: its tag, 5, the profile, the index, two front elements of tags 0 and 1.
std::vector<std::uint8_t> audio_specific_config(const EncoderConfig &config) {
    const std::uint64_t index = stream_format(config).sampling_frequency_index;
    const bool two_mono = config.channel_mode == TAVIK_MODE_TWO_MONO;
    const std::uint64_t head = 2u << 11 | index << 7 | (two_mono ? 0 : channel_count(config)) << 3;
    const std::uint64_t program = 5ull << 52 | 1ull << 50 | index << 46 | 2ull << 42 | 1u << 12;
    std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(head >> 8), static_cast<std::uint8_t>(head)};
    for (int shift = 48; two_mono && shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(program >> shift));
    return bytes;
}

// Opening a codec takes longer than decoding a short stream: each stays open for the streams that look alike to it.
struct ReferenceDecoder::Codecs {
    std::map<std::tuple<std::uint32_t, std::uint32_t, bool>, Codec> open;
    AVCodecContext *current = nullptr;
    EncoderConfig config{};
    std::unique_ptr<AVPacket, Free<av_packet_free>> packet{av_packet_alloc()};
    std::unique_ptr<AVFrame, Free<av_frame_free>> frame{av_frame_alloc()};
    // The decoder may read a little behind a packet.
    std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES + AV_INPUT_BUFFER_PADDING_SIZE> bytes{};
};

ReferenceDecoder::ReferenceDecoder() : codecs_(std::make_unique<Codecs>()) { av_log_set_callback(note_complaint); }
ReferenceDecoder::~ReferenceDecoder() = default;

void ReferenceDecoder::start(const EncoderConfig &config) {
    complaint().clear();
    const bool has_headers = config.header_type == TAVIK_HEADER_ADTS;
    Codec &codec = codecs_->open[{config.channel_mode, config.sample_rate, has_headers}];
    if (codec == nullptr) codec = open_codec(config);
    codecs_->current = codec.get();
    codecs_->config = config;
    avcodec_flush_buffers(codec.get());
}

DecodedFrame ReferenceDecoder::decode(std::span<const std::uint8_t> frame, std::size_t header_bytes) {
    const auto block = frame.subspan(header_bytes);
    AVPacket &packet = *codecs_->packet;
    const AVFrame &samples = *codecs_->frame;
    codecs_->bytes.fill(0);
    packet.data = codecs_->bytes.data();
    packet.size = static_cast<int>(block.size());
    std::copy(block.begin(), block.end(), packet.data);
    require_of_decoder(avcodec_send_packet(codecs_->current, &packet) == 0, "refuses a frame:");
    require_of_decoder(avcodec_receive_frame(codecs_->current, codecs_->frame.get()) == 0, "gives no samples:");
    const unsigned channels = channel_count(codecs_->config);
    require_of_decoder(samples.nb_samples == TAVIK_FRAME_LENGTH && samples.format == AV_SAMPLE_FMT_FLTP &&
                           samples.ch_layout.nb_channels == static_cast<int>(channels) &&
                           samples.sample_rate == static_cast<int>(codecs_->config.sample_rate),
                       "gives other samples than those of the stream");
    require_of_decoder(complaint().empty(), "complains:");
    DecodedFrame decoded;
    for (unsigned channel = 0; channel < channels; ++channel) {
        decoded.emplace_back(reinterpret_cast<const float *>(samples.extended_data[channel]), TAVIK_FRAME_LENGTH);
    }
    return decoded;
}

}  // namespace tavik_test
