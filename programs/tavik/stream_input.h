// Input that is read through a descriptor: standard input or a FIFO, perhaps live.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ffmpeg_handles.h"
#include "wav_header.h"

namespace tavik {

// Reads for libavformat. In a pipe, a WAV header is read here: libavformat would look at the first 128 Kbyte behind it
// before it gives any of them, three quarters of a second of live stereo.
class StreamInput {
 public:
    // `path` may be standard_stream. Throws ProgramError with ExitCode::input when it cannot be opened.
    StreamInput(const std::string &path, bool may_be_wav);
    ~StreamInput();
    StreamInput(const StreamInput &) = delete;
    StreamInput &operator=(const StreamInput &) = delete;

    // The path is such an input.
    static bool suits(const std::string &path);

    AVIOContext *io() { return io_.get(); }

    // Can be gone back over, as a file that is standard input can.
    bool is_seekable() const { return start_ >= 0; }

    // The header if there is one; in a pipe, io() then gives only the samples behind it.
    const std::optional<WavHeader> &wav_header() const { return wav_header_; }

 private:
    bool read_more(std::vector<uint8_t> &bytes, size_t count);
    int read(uint8_t *bytes, size_t room);
    int64_t seek(int64_t offset, int whence) const;

    static int read_callback(void *input, uint8_t *bytes, int room);
    static int64_t seek_callback(void *input, int64_t offset, int whence);

    int descriptor_;
    int64_t start_ = -1;         // position in the file when it was opened; -1 in a pipe
    std::vector<uint8_t> head_;  // read ahead, and still to be given to io()
    size_t head_given_ = 0;
    std::optional<WavHeader> wav_header_;
    std::optional<uint64_t> bytes_to_come_;  // before what counts as the end
    FfmpegHandle<AVIOContext> io_;
};

}  // namespace tavik
