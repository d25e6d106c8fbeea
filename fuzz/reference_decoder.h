// An independent AAC decoder, libavcodec's, that must take every frame without a complaint.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tavik.h"

namespace tavik_fuzz {

// Samples of each channel, 1.0 for 32768; none where there is no decoder.
struct DecodedFrame {
    std::vector<std::span<const float>> channels;
};

// Decodes one stream at a time. Where libavcodec is not at hand (cross builds) it takes everything.
class ReferenceDecoder {
 public:
    ReferenceDecoder();
    ~ReferenceDecoder();

    // Starts a new stream. Throws std::runtime_error if the decoder cannot be opened.
    void start(const EncoderConfig &config);

    // The same with a given AudioSpecificConfig; without one the stream has ADTS headers.
    void start(const EncoderConfig &config, std::span<const std::uint8_t> audio_specific_config);

    // The next frame of the stream, its first `header_bytes` bytes a stream header. Throws std::runtime_error for an
    // error or a warning of the decoder, or unless it gives 1024 samples of each channel. They stand until the next
    // call.
    DecodedFrame decode(std::span<const std::uint8_t> frame, std::size_t header_bytes);

 private:
    struct Codecs;
    std::unique_ptr<Codecs> codecs_;
};

}  // namespace tavik_fuzz
