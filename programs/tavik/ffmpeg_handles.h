// Ownership of objects of FFmpeg's libraries, and texts of their errors.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>

namespace tavik {

// Frees objects that FFmpeg's libraries have allocated.
struct FfmpegDeleter {
    void operator()(AVFormatContext *context) const {
        if (context->iformat != nullptr) avformat_close_input(&context);
        avformat_free_context(context);
    }
    void operator()(AVIOContext *context) const {
        av_freep(static_cast<void *>(&context->buffer));
        avio_context_free(&context);
    }
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParameters *parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(SwrContext *context) const { swr_free(&context); }
    void operator()(AVAudioFifo *fifo) const { av_audio_fifo_free(fifo); }
};

template <typename T>
using FfmpegHandle = std::unique_ptr<T, FfmpegDeleter>;

// Owns a pointer that an FFmpeg allocation function returned; throws std::bad_alloc for nullptr.
template <typename T>
FfmpegHandle<T> own(T *pointer) {
    if (pointer == nullptr) throw std::bad_alloc();
    return FfmpegHandle<T>(pointer);
}

// A packet with a copy of these bytes, followed by zeros as padding.
inline FfmpegHandle<AVPacket> new_packet(std::span<const uint8_t> bytes) {
    auto packet = own(av_packet_alloc());
    if (av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) throw std::bad_alloc();
    if (!bytes.empty()) std::memcpy(packet->data, bytes.data(), bytes.size());
    return packet;
}

// Stores a copy of a decoder configuration in codec parameters.
inline void set_extradata(AVCodecParameters &parameters, std::span<const uint8_t> bytes) {
    parameters.extradata = static_cast<uint8_t *>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr) throw std::bad_alloc();
    std::ranges::copy(bytes, parameters.extradata);
    parameters.extradata_size = static_cast<int>(bytes.size());
}

// Text for the negative result of an FFmpeg function.
inline std::string ffmpeg_error_text(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    const bool known = av_strerror(error, text.data(), text.size()) == 0;
    return known ? text.data() : "unknown error";
}

}  // namespace tavik
