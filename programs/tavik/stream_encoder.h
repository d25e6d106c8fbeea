// A thin wrapper of the library.
#pragma once

#include <tavik.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace tavik {

// Text such as "3.0.0" for a version number as TAVIK_get_version() returns it.
std::string version_text(uint32_t version);

// Encodes one stream, from the first samples to the last frame.
class StreamEncoder {
 public:
    // The configuration must be valid.
    explicit StreamEncoder(const EncoderConfig &config);
    StreamEncoder(const StreamEncoder &) = delete;
    StreamEncoder &operator=(const StreamEncoder &) = delete;
    ~StreamEncoder() = default;

    // Encodes `sample_count` samples per channel: TAVIK_FRAME_LENGTH, fewer in the last block, then 0. Returns one
    // frame or nothing, valid until the next call.
    std::span<const uint8_t> encode(const int16_t *samples, size_t sample_count);

    // Whether all frames have been returned.
    bool finished() const { return context_.status == TAVIK_STATUS_END_OF_STREAM; }

 private:
    EncoderContext context_{};
    std::array<uint8_t, TAVIK_MAX_FRAME_BYTES> frame_{};
};

}  // namespace tavik
