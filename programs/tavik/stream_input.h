// Input that is read through a descriptor: standard input or a FIFO, perhaps live.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ffmpeg_handles.h"

namespace tavik {

// Reads for libavformat.
class StreamInput {
 public:
    // `path` may be standard_stream. Throws ProgramError with ExitCode::input when it cannot be opened.
    explicit StreamInput(const std::string &path);
    ~StreamInput();
    StreamInput(const StreamInput &) = delete;
    StreamInput &operator=(const StreamInput &) = delete;

    // The path is such an input.
    static bool suits(const std::string &path);

    AVIOContext *io() { return io_.get(); }

    // Can be gone back over, as a file that is standard input can.
    bool is_seekable() const { return start_ >= 0; }

    // Bytes near the beginning of a pipe, which have been read before; false when they have not, or are too far behind.
    bool read_again(int64_t position, std::span<uint8_t> bytes) const;

 private:
    size_t wait(size_t room);
    int read(uint8_t *bytes, size_t room);
    int64_t seek(int64_t offset, int whence) const;

    static int read_callback(void *input, uint8_t *bytes, int room);
    static int64_t seek_callback(void *input, int64_t offset, int whence);

    int descriptor_;
    int64_t start_;                        // position in the file when it was opened; -1 in a pipe
    std::vector<uint8_t> head_;            // of a pipe
    std::optional<size_t> bytes_to_come_;  // once an interruption has ended the input
    FfmpegHandle<AVIOContext> io_;
};

}  // namespace tavik
