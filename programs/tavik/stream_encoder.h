// The library behind two functions; stands between the input and the output side of the program.
#pragma once

#include <tavik.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace tavik {

// Such as 3.0.0, of a number as TAVIK_get_version() returns it.
std::string version_text(uint32_t version);

// One run of the library's encoder, from the first samples to the last frame.
class StreamEncoder {
 public:
    // The configuration has been checked.
    explicit StreamEncoder(const EncoderConfig &config);
    StreamEncoder(const StreamEncoder &) = delete;
    StreamEncoder &operator=(const StreamEncoder &) = delete;
    ~StreamEncoder() = default;

    // Takes `sample_count` samples per channel: TAVIK_FRAME_LENGTH, less in the last block, 0 from then on. Returns the
    // bytes of at most one coded frame, valid until the next call.
    std::span<const uint8_t> encode(const int16_t *samples, size_t sample_count);

    // All frames have been delivered.
    bool finished() const { return context_.status == TAVIK_STATUS_END_OF_STREAM; }

 private:
    EncoderContext context_{};
    std::array<uint8_t, TAVIK_MAX_FRAME_BYTES> frame_{};
};

}  // namespace tavik
