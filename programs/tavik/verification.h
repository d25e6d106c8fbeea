// Reads the output back and decodes it with libavcodec, which shares no code with the encoder.
#pragma once

#include <cstdint>
#include <span>

#include "encode_file.h"
#include "output_file.h"

namespace tavik {

// Size and checksum of a frame with its headers.
struct FrameDigest {
    uint32_t size;      // bytes
    uint32_t checksum;  // Adler-32 (RFC 1950)

    bool operator==(const FrameDigest &) const = default;
};

FrameDigest digest_of(std::span<const uint8_t> frame);

// Decodes the output, which is complete but does not have its final name yet, and compares its rate, channels, frames
// and length with what was encoded. `digests`: of all frames. Throws ProgramError with ExitCode::output if anything
// differs, the decoder reports an error or the output cannot be read back.
void verify(const OutputFile &output, const EncodedFile &expected, std::span<const FrameDigest> digests);

}  // namespace tavik
