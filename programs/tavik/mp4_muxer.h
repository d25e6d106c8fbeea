// MP4 files around the coded frames, for music players and for pipes.
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

// An MP4 file that this program has made before, by its tags.
bool is_made_by_tavik(const std::string &path);

// Writes frames, the first of them the priming frame, into an MP4 file with the chapters of the source and its index in
// front, to which write_tags() adds tags in the end; or as fragmented MP4 with tags and without chapters, which needs
// no index and can be written into a pipe. Errors throw ProgramError with ExitCode::output.
class Mp4Muxer {
 public:
    // Keeps references to `output` and `tags`. fragment_samples: how many per channel a fragment is to have, at least;
    // without it there are none, and the output has to be a regular file.
    Mp4Muxer(OutputFile &output, const EncoderConfig &config, const AudioDecoder &source, const Tags &tags,
             std::optional<int64_t> fragment_samples);
    Mp4Muxer(const Mp4Muxer &) = delete;
    Mp4Muxer &operator=(const Mp4Muxer &) = delete;
    ~Mp4Muxer() = default;

    // `samples` per channel, as far as they are known, are what a player is to play: of the last frame only those that
    // there are.
    void write(std::span<const uint8_t> frame, uint64_t samples);

    // Ends the file.
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
    int64_t start_;           // when the first sample is to be heard, in samples; playing starts at 0
    int64_t next_time_;       // of the next frame
    int64_t fragment_start_;  // of its first frame
    bool is_first_fragment_ = true;
    uint64_t read_position_ = 0;  // while what is written is moved to make room for the index
    std::optional<StreamTagger> tagger_;
    std::exception_ptr error_;  // of the output, on its way through FFmpeg's functions
};

}  // namespace tavik
