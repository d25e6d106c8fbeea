// An independent AAC decoder, libavcodec's, that must take every frame without a complaint.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tavik.h"

namespace tavik_test {

// The AudioSpecificConfig (ISO/IEC 14496-3) of a configuration's raw frames.
std::vector<std::uint8_t> audio_specific_config(const EncoderConfig &config);

// Samples of each channel, 1.0 for 32768; none where there is no decoder.
using DecodedFrame = std::vector<std::span<const float>>;

// Decodes one stream at a time. Where libavcodec is not at hand (cross builds) it takes everything.
class ReferenceDecoder {
 public:
    ReferenceDecoder();
    ~ReferenceDecoder();

    // Starts a new stream. Throws std::runtime_error if the decoder cannot be opened.
    void start(const EncoderConfig &config);

    // The next frame of the stream, its first `header_bytes` bytes an ADIF header. Throws std::runtime_error for an
    // error or a warning of the decoder, or unless it gives 1024 samples of each channel. They stand until the next
    // call.
    DecodedFrame decode(std::span<const std::uint8_t> frame, std::size_t header_bytes);

 private:
    struct Codecs;
    std::unique_ptr<Codecs> codecs_;
};

}  // namespace tavik_test
