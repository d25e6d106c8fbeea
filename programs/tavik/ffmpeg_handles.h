// Ownership and error texts of FFmpeg's C interface, for the input side of the program.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

#include <array>
#include <memory>
#include <string>

namespace tavik {

// Frees what FFmpeg's libraries allocate.
struct FfmpegDeleter {
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
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

// Text of a negative result of an FFmpeg function.
inline std::string ffmpeg_error_text(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    const bool known = av_strerror(error, text.data(), text.size()) == 0;
    return known ? text.data() : "unknown error";
}

}  // namespace tavik
