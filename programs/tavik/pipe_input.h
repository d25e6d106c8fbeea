// Input that comes piece by piece and cannot be gone back over, perhaps live: standard input or a FIFO.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ffmpeg_handles.h"
#include "options.h"

namespace tavik {

// Programs that write WAV to a pipe, or are killed before the end, leave some number around 2^31 or 2^32 as its length.
inline constexpr int64_t unknown_wav_bytes = 0x7FFF'0000;

// Reads from a pipe for libavformat. A WAV header is read here: libavformat would look at the first 128 Kbyte behind it
// before it gives any of them, three quarters of a second of live stereo.
class PipeInput {
 public:
    // `path` may be standard_stream. Throws ProgramError with ExitCode::input when it cannot be opened.
    PipeInput(const std::string &path, bool may_be_wav);
    ~PipeInput();
    PipeInput(const PipeInput &) = delete;
    PipeInput &operator=(const PipeInput &) = delete;

    // The path is such an input.
    static bool suits(const std::string &path);

    AVIOContext *io() { return io_.get(); }

    // What a WAV header told, which is then not read by io() any more: format and, if it is known, length of what
    // follows.
    const std::optional<PcmFormat> &wav_format() const { return wav_format_; }
    std::optional<double> wav_seconds() const { return wav_seconds_; }

 private:
    bool read_exactly(size_t count);
    void read_wav_header();
    void read_format_chunk(const uint8_t *chunk, size_t size);
    void start_data(uint32_t bytes);
    int read(uint8_t *bytes, size_t room);

    static int read_callback(void *input, uint8_t *bytes, int room);

    int descriptor_;
    std::vector<uint8_t> head_;  // read ahead, and still to be given to io()
    size_t head_given_ = 0;
    std::optional<PcmFormat> wav_format_;
    std::optional<double> wav_seconds_;
    uint32_t bytes_per_second_ = 0;          // of wav_format_
    std::optional<uint64_t> bytes_to_come_;  // before what counts as the end
    FfmpegHandle<AVIOContext> io_;
};

}  // namespace tavik
