// MP4 files around the coded frames, for music players and for pipes.
#pragma once

#include <tavik.h>

#include <cstdint>
#include <exception>
#include <span>
#include <string>

#include "audio_decoder.h"
#include "ffmpeg_handles.h"
#include "output_file.h"

namespace tavik {

// An MP4 file that this program has made before, by its tags.
bool is_made_by_tavik(const std::string &path);

// Writes frames, the first of them the priming frame, into an MP4 file with the tags, cover pictures and chapters of
// the source; what cannot be gone back over, such as a pipe, becomes a fragmented MP4 stream without pictures and
// chapters. Errors throw ProgramError with ExitCode::output.
class Mp4Muxer {
 public:
    // Keeps a reference to `output`.
    Mp4Muxer(OutputFile &output, const EncoderConfig &config, const AudioDecoder &source);
    Mp4Muxer(const Mp4Muxer &) = delete;
    Mp4Muxer &operator=(const Mp4Muxer &) = delete;
    ~Mp4Muxer() = default;

    void write(std::span<const uint8_t> frame);

    // Ends the file; `samples` per channel are what a player is to play.
    void finish(uint64_t samples);

 private:
    void open_output();
    void add_audio_stream(const EncoderConfig &config, const AVStream &source);
    void add_pictures(const AVFormatContext &source);
    void write_header();
    void write_pictures(const AVFormatContext &source);
    void write_held_packet(int64_t duration);
    void check(int result);

    template <typename Byte>
    static int write_callback(void *muxer, Byte *bytes, int count);
    static int64_t seek_callback(void *muxer, int64_t offset, int whence);

    OutputFile &output_;
    FfmpegHandle<AVIOContext> io_;
    FfmpegHandle<AVFormatContext> format_;
    FfmpegHandle<AVPacket> held_;  // the latest frame: the duration of the last one is known only at the end
    int64_t start_;                // when the first sample is to be heard, in samples; playing starts at 0
    int64_t next_time_;            // of the next frame
    std::exception_ptr error_;     // of the output, on its way through FFmpeg's functions
};

}  // namespace tavik
