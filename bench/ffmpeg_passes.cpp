// FFmpeg's own AAC encoder and decoder, through the public interface of libavcodec.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <stdexcept>

#include "pass.h"

namespace tavik_bench {
namespace {

struct FfmpegDeleter {
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
};

template <typename T>
using Handle = std::unique_ptr<T, FfmpegDeleter>;

void require(bool success, const char *what) {
    if (!success) throw std::runtime_error(std::string("libavcodec: ") + what);
}

Handle<AVCodecContext> make_context(const AVCodec *codec) {
    av_log_set_level(AV_LOG_WARNING);
    require(codec != nullptr, "no codec aac");
    Handle<AVCodecContext> context(avcodec_alloc_context3(codec));
    require(context != nullptr, "no context");
    context->thread_count = 1;
    return context;
}

class FfmpegEncoder : public Pass {
 public:
    FfmpegEncoder(const Clip &clip, unsigned bit_rate) : packet_(av_packet_alloc()) {
        require(packet_ != nullptr, "no packet");
        open(clip, bit_rate);
        for (std::size_t begin = 0; begin < clip.samples_per_channel();) begin += add_frame(clip, begin);
    }

    std::size_t run() override {
        std::size_t bytes = 0;
        for (const auto &frame : frames_) bytes += send(frame.get());
        return bytes + send(nullptr);
    }

 private:
    void open(const Clip &clip, unsigned bit_rate) {
        const AVCodec *codec = avcodec_find_encoder_by_name("aac");
        context_ = make_context(codec);
        context_->bit_rate = bit_rate;
        context_->sample_rate = static_cast<int>(clip.sample_rate);
        context_->sample_fmt = AV_SAMPLE_FMT_FLTP;
        av_channel_layout_default(&context_->ch_layout, static_cast<int>(clip.channels));
        require(av_opt_set(context_->priv_data, "aac_coder", "fast", 0) == 0, "no fast coder");
        require(avcodec_open2(context_.get(), codec, nullptr) == 0, "configuration refused");
    }

    // Appends the frame that starts at a sample of the clip; returns its samples per channel.
    std::size_t add_frame(const Clip &clip, std::size_t begin) {
        const auto samples =
            std::min(clip.samples_per_channel() - begin, static_cast<std::size_t>(context_->frame_size));
        Handle<AVFrame> frame(av_frame_alloc());
        require(frame != nullptr, "no frame");
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->nb_samples = static_cast<int>(samples);
        frame->sample_rate = context_->sample_rate;
        frame->pts = static_cast<std::int64_t>(begin);
        require(av_channel_layout_copy(&frame->ch_layout, &context_->ch_layout) == 0, "no channel layout");
        require(av_frame_get_buffer(frame.get(), 0) == 0, "no frame buffer");
        for (unsigned channel = 0; channel < clip.channels; ++channel) {
            auto *plane = reinterpret_cast<float *>(frame->extended_data[channel]);
            for (std::size_t i = 0; i < samples; ++i) {
                plane[i] = static_cast<float>(clip.pcm[(begin + i) * clip.channels + channel]) / 32768.0F;
            }
        }
        frames_.push_back(std::move(frame));
        return samples;
    }

    // nullptr ends the stream. Returns the bytes of the packets that come out.
    std::size_t send(const AVFrame *frame) {
        require(avcodec_send_frame(context_.get(), frame) == 0, "frame refused");
        std::size_t bytes = 0;
        while (avcodec_receive_packet(context_.get(), packet_.get()) == 0) {
            bytes += static_cast<std::size_t>(packet_->size);
            av_packet_unref(packet_.get());
        }
        return bytes;
    }

    Handle<AVCodecContext> context_;
    Handle<AVPacket> packet_;
    std::vector<Handle<AVFrame>> frames_;
};

class FfmpegDecoder : public Pass {
 public:
    explicit FfmpegDecoder(const Stream &stream) : frame_(av_frame_alloc()) {
        const AVCodec *codec = avcodec_find_decoder_by_name("aac");
        context_ = make_context(codec);
        require(frame_ != nullptr, "no frame");
        require(avcodec_open2(context_.get(), codec, nullptr) == 0, "decoder refused");
        for (const auto &bytes : stream) {
            Handle<AVPacket> packet(av_packet_alloc());
            require(packet != nullptr && av_new_packet(packet.get(), static_cast<int>(bytes.size())) == 0, "no packet");
            std::copy(bytes.begin(), bytes.end(), packet->data);
            packets_.push_back(std::move(packet));
        }
    }

    std::size_t run() override {
        std::size_t bytes = 0;
        for (const auto &packet : packets_) bytes += send(packet.get());
        return bytes + send(nullptr);
    }

 private:
    // nullptr ends the stream. Returns the bytes of the samples that come out.
    std::size_t send(const AVPacket *packet) {
        require(avcodec_send_packet(context_.get(), packet) == 0, "packet refused");
        std::size_t bytes = 0;
        while (avcodec_receive_frame(context_.get(), frame_.get()) == 0) {
            const int samples = frame_->nb_samples * frame_->ch_layout.nb_channels;
            bytes += static_cast<std::size_t>(samples) * sizeof(float);
        }
        return bytes;
    }

    Handle<AVCodecContext> context_;
    Handle<AVFrame> frame_;
    std::vector<Handle<AVPacket>> packets_;
};

}  // namespace

std::unique_ptr<Pass> make_ffmpeg_encoder(const Clip &clip, const Stream &, unsigned bit_rate) {
    return std::make_unique<FfmpegEncoder>(clip, bit_rate);
}

std::unique_ptr<Pass> make_ffmpeg_decoder(const Clip &, const Stream &stream, unsigned) {
    return std::make_unique<FfmpegDecoder>(stream);
}

}  // namespace tavik_bench
