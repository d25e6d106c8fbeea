// Input through a descriptor: standard input, a FIFO or a character device, possibly live.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ffmpeg_handles.h"

namespace tavik {

// Reads an input for libavformat.
class StreamInput {
 public:
    // `path` may be standard_stream. Throws ProgramError with ExitCode::input when it cannot be opened.
    explicit StreamInput(const std::string &path);
    ~StreamInput();
    StreamInput(const StreamInput &) = delete;
    StreamInput &operator=(const StreamInput &) = delete;

    // Whether the path is such an input.
    static bool is_stream(const std::string &path);

    AVIOContext *io() { return io_.get(); }

    // Whether it can be read again from an earlier position: standard input may be a regular file.
    bool is_seekable() const { return start_ >= 0; }

    // Copies bytes that were read earlier; false if they are not among the first bytes of a pipe, which are kept.
    bool read_again(int64_t position, std::span<uint8_t> bytes) const;

 private:
    size_t wait(size_t room);
    int read(uint8_t *bytes, size_t room);
    int64_t seek(int64_t offset, int whence) const;

    static int read_callback(void *input, uint8_t *bytes, int room);
    static int64_t seek_callback(void *input, int64_t offset, int whence);

    int descriptor_;
    int64_t start_;                     // position in the file when it was opened; -1 if it is a pipe
    std::vector<uint8_t> head_;         // the first bytes of a pipe
    std::optional<size_t> bytes_left_;  // bytes still to read after a signal has ended the input
    FfmpegHandle<AVIOContext> io_;
};

}  // namespace tavik
