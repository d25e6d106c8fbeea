// Writes coded frames into MP4 files and streams.
#pragma once

#include <tavik.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>

#include "audio_decoder.h"
#include "ffmpeg_handles.h"
#include "output_file.h"
#include "tag_writer.h"
#include "tags.h"

namespace tavik {

// Whether this program has made the MP4 file, according to its tags.
bool is_made_by_tavik(const std::string &path);

// Writes frames, of which the first is the priming frame, in one of two forms:
// - a file with chapters and with its index in front, to which write_tags() adds the tags when it is complete;
// - fragmented MP4, with tags and without chapters. It has no index and can be written into a pipe.
// Errors throw ProgramError with ExitCode::output.
class Mp4Muxer {
 public:
    // Keeps references to `output` and `tags`. fragment_samples: minimum length of a fragment in samples; if absent,
    // the file is not fragmented, and `output` must be a regular file.
    Mp4Muxer(OutputFile &output, const EncoderConfig &config, const AudioDecoder &source, const Tags &tags,
             std::optional<int64_t> fragment_samples);
    Mp4Muxer(const Mp4Muxer &) = delete;
    Mp4Muxer &operator=(const Mp4Muxer &) = delete;
    ~Mp4Muxer() = default;

    // `samples`: input samples per channel so far; in the last call the length to play, without the final padding.
    void write(std::span<const uint8_t> frame, uint64_t samples);

    // Completes the file.
    void finish();

 private:
    void open_output();
    void add_audio_stream(const EncoderConfig &config, const std::string &language);
    void write_header();
    void end_fragment();
    void check(int result);

    template <typename Byte>
    static int write_callback(void *muxer, Byte *bytes, int count);
    static int64_t seek_callback(void *muxer, int64_t offset, int whence);
    static int open_callback(AVFormatContext *format, AVIOContext **io, const char *url, int flags,
                             AVDictionary **options);
    static int close_callback(AVFormatContext *format, AVIOContext *io);
    static int read_callback(void *muxer, uint8_t *bytes, int room);
    static int64_t read_seek_callback(void *muxer, int64_t offset, int whence);

    OutputFile &output_;
    FfmpegHandle<AVIOContext> io_;
    FfmpegHandle<AVFormatContext> format_;
    std::optional<int64_t> fragment_samples_;
    int64_t start_;           // time of the first sample, in samples; playback starts at 0
    int64_t next_time_;       // time of the next frame, in samples
    int64_t fragment_start_;  // time of the first frame of the fragment, in samples
    bool is_first_fragment_ = true;
    uint64_t read_position_ = 0;  // used while libavformat moves the frames to make room for the index
    std::optional<StreamTagger> tagger_;
    std::exception_ptr error_;  // an exception in a callback, which must not pass through FFmpeg's functions
};

}  // namespace tavik
