// Drives the public interface of the library as a careful host would, and reads back what it wrote.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/strict_reader.h"
#include "tavik.h"

namespace tavik_test {

struct EncodedStream {
    std::vector<std::vector<std::uint8_t>> frames;  // the output of each call that gave any

    // All frames in a row.
    std::vector<std::uint8_t> bytes() const;
};

unsigned channel_count(const EncoderConfig &config);

// Encodes interleaved samples: 1024 per channel and call, the rest with its true count, then count 0 until the end of
// the stream is reported without output. Throws std::runtime_error if TAVIK_Init refuses or if a call breaks its
// promises: result, status and counts that do not fit together, too large an output, a write outside output buffer or
// context, a wrong number of frames. The input of each call is a heap block of just its size, so that the address
// sanitizer sees a read beyond it.
EncodedStream encode_stream(const EncoderConfig &config, std::span<const std::int16_t> pcm);

// How the strict reader has to take the frames of a stream.
StreamFormat stream_format(const EncoderConfig &config);

// Reads every frame with the strict reader and checks it against the configuration: elements, headers, the sizes of a
// constant-rate stream, no TNS where it is disabled, and that window shapes of successive frames overlap. Throws
// std::runtime_error with the number of the frame, from 0.
std::vector<Frame> read_stream(const EncoderConfig &config, const EncodedStream &stream);

}  // namespace tavik_test
