#include "reference_decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "support/checked_encoder.h"
#include "support/require.h"

namespace tavik_fuzz {
namespace {

// The latest message of the decoder, warnings included.
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

void require(bool condition, const char *message) {
    tavik_test::require(condition, "the reference decoder: ", message, ' ', complaint());
}

// Bits of an AudioSpecificConfig (ISO/IEC 14496-3), most significant first.
class BitString {
 public:
    void put(unsigned value, unsigned bits) {
        for (; bits > 0; --bits, ++size_) {
            if (size_ % 8 == 0) bytes_.push_back(0);
            bytes_.back() |= static_cast<std::uint8_t>((value >> (bits - 1) & 1) << (7 - size_ % 8));
        }
    }
    void align() { put(0, static_cast<unsigned>((8 - size_ % 8) % 8)); }
    const std::vector<std::uint8_t> &bytes() const { return bytes_; }

 private:
    std::vector<std::uint8_t> bytes_;
    unsigned size_ = 0;
};

std::vector<std::uint8_t> audio_specific_config(const EncoderConfig &config) {
    constexpr unsigned low_complexity = 2;
    const unsigned rate_index = TAVIK_SampleRateIndex(config.sample_rate);
    const bool two_mono = config.channel_mode == TAVIK_MODE_TWO_MONO;
    BitString bits;
    bits.put(low_complexity, 5);
    bits.put(rate_index, 4);
    bits.put(two_mono ? 0 : tavik_test::channel_count(config), 4);
    bits.put(0, 3);  // GASpecificConfig: 1024 lines, no core coder, no extension
    if (!two_mono) return bits.bytes();
    bits.put(0, 4);                   // program_config_element: its tag
    bits.put(low_complexity - 1, 2);  // profile
    bits.put(rate_index, 4);
    bits.put(2, 4);                  // front elements
    bits.put(0, 4 + 4 + 2 + 3 + 4);  // no others
    bits.put(0, 3);                  // no mixdown
    bits.put(0, 1 + 4);              // single channel, tag 0
    bits.put(1, 1 + 4);              // single channel, tag 1
    bits.align();
    bits.put(0, 8);  // no comment
    return bits.bytes();
}

struct ContextDeleter {
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
};
struct PacketDeleter {
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};
struct FrameDeleter {
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};

using Codec = std::unique_ptr<AVCodecContext, ContextDeleter>;

Codec open_codec(std::span<const std::uint8_t> description) {
    const AVCodec *codec = avcodec_find_decoder_by_name("aac");
    require(codec != nullptr, "is missing");
    Codec context(avcodec_alloc_context3(codec));
    context->thread_count = 1;
    context->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    if (!description.empty()) {
        context->extradata = static_cast<std::uint8_t *>(av_mallocz(description.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        context->extradata_size = static_cast<int>(description.size());
        std::copy(description.begin(), description.end(), context->extradata);
    }
    require(avcodec_open2(context.get(), codec, nullptr) == 0, "cannot be opened");
    return context;
}

}  // namespace

// Opening a codec takes longer than decoding a short stream: each stays open for the streams that look alike to it.
struct ReferenceDecoder::Codecs {
    std::map<std::tuple<std::uint32_t, std::uint32_t, std::vector<std::uint8_t>>, Codec> open;
    AVCodecContext *current = nullptr;
    int channels = 0;
    int sample_rate = 0;
    std::unique_ptr<AVPacket, PacketDeleter> packet{av_packet_alloc()};
    std::unique_ptr<AVFrame, FrameDeleter> frame{av_frame_alloc()};
    // The decoder may read a little behind a packet.
    std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES + AV_INPUT_BUFFER_PADDING_SIZE> bytes{};
};

ReferenceDecoder::ReferenceDecoder() : codecs_(std::make_unique<Codecs>()) { av_log_set_callback(note_complaint); }
ReferenceDecoder::~ReferenceDecoder() = default;

void ReferenceDecoder::start(const EncoderConfig &config) {
    const bool is_adts = config.header_type == TAVIK_HEADER_ADTS;
    start(config, is_adts ? std::vector<std::uint8_t>{} : audio_specific_config(config));
}

void ReferenceDecoder::start(const EncoderConfig &config, std::span<const std::uint8_t> description) {
    complaint().clear();
    Codec &codec = codecs_->open[{config.channel_mode, config.sample_rate, {description.begin(), description.end()}}];
    if (codec == nullptr) codec = open_codec(description);
    codecs_->current = codec.get();
    codecs_->channels = static_cast<int>(tavik_test::channel_count(config));
    codecs_->sample_rate = static_cast<int>(config.sample_rate);
    avcodec_flush_buffers(codec.get());
}

DecodedFrame ReferenceDecoder::decode(std::span<const std::uint8_t> frame, std::size_t header_bytes) {
    const auto block = frame.subspan(header_bytes);
    AVPacket &packet = *codecs_->packet;
    AVFrame &samples = *codecs_->frame;
    packet.data = codecs_->bytes.data();
    packet.size = static_cast<int>(block.size());
    std::copy(block.begin(), block.end(), packet.data);
    std::memset(packet.data + block.size(), 0, AV_INPUT_BUFFER_PADDING_SIZE);
    require(avcodec_send_packet(codecs_->current, &packet) == 0, "refuses a frame:");
    require(avcodec_receive_frame(codecs_->current, &samples) == 0, "gives no samples:");
    require(samples.nb_samples == TAVIK_FRAME_LENGTH, "gives too few samples");
    require(samples.ch_layout.nb_channels == codecs_->channels, "gives other channels");
    require(samples.sample_rate == codecs_->sample_rate, "gives another sampling rate");
    require(samples.format == AV_SAMPLE_FMT_FLTP, "gives no floating-point samples");
    require(complaint().empty(), "complains:");
    DecodedFrame decoded;
    for (int channel = 0; channel < codecs_->channels; ++channel) {
        decoded.channels.emplace_back(reinterpret_cast<const float *>(samples.extended_data[channel]),
                                      TAVIK_FRAME_LENGTH);
    }
    return decoded;
}

}  // namespace tavik_fuzz
