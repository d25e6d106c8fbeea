// Encodes whole streams and checks every frame of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/checked_encoder.h"
#include "support/strict_reader.h"
#include "tavik.h"

namespace tavik_test {

struct EncodedStream {
    std::vector<std::vector<std::uint8_t>> frames;  // the output of each call that gave any

    // All frames in a row.
    std::vector<std::uint8_t> bytes() const;
};

// Encodes interleaved samples with a CheckedEncoder: 1024 per channel and call, the rest with its true count, then
// count 0 until the end of the stream is reported without output. Throws std::runtime_error if TAVIK_Init refuses, if a
// promise is broken or for a wrong number of frames.
EncodedStream encode_stream(const EncoderConfig &config, std::span<const std::int16_t> pcm);

// How the strict reader has to take the frames of a stream.
StreamFormat stream_format(const EncoderConfig &config);

// The largest frame of a stream in bytes, as the public header derives it.
std::size_t largest_frame(const EncoderConfig &config);

// Takes the frames of one stream in order. Checks each with the strict reader and against configuration and history:
// elements, headers, no TNS where it is disabled, window shapes of successive frames that overlap; at constant rate the
// mean size whenever the data fit it; at variable rate no more than reservoir and decoder buffer allow; never
// more than the largest frame.
class StreamReader {
 public:
    explicit StreamReader(const EncoderConfig &config);

    // Throws std::runtime_error with the number of the frame, from 0.
    const Frame &read(std::span<const std::uint8_t> bytes);

 private:
    void check(const Frame &frame, std::size_t bytes) const;
    void check_size(const Frame &frame, std::size_t bytes) const;

    StreamFormat format_;
    std::size_t mean_bytes_;  // of a frame
    std::size_t largest_bytes_;
    std::size_t reservoir_bytes_ = 0;  // saved by earlier frames
    std::size_t number_ = 0;
    std::optional<Frame> previous_;
};

// All frames of a stream through a StreamReader.
std::vector<Frame> read_stream(const EncoderConfig &config, const EncodedStream &stream);

}  // namespace tavik_test
