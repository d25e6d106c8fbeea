// The finished output read back by libavcodec, which shares nothing with the encoder.
#pragma once

#include <cstdint>
#include <span>

#include "encode_file.h"
#include "output_file.h"

namespace tavik {

// What identifies a frame, headers included.
struct FrameMark {
    uint32_t size;      // bytes
    uint32_t checksum;  // Adler-32 (RFC 1950)

    bool operator==(const FrameMark &) const = default;
};

FrameMark mark_of(std::span<const uint8_t> frame);

// Decodes the output, which is complete but still has its temporary name, and compares its rate, channels, frames and
// length with what was encoded. Throws ProgramError with ExitCode::output when anything differs, the decoder complains
// or the output cannot be read back. marks: of all frames.
void verify(const OutputFile &output, const EncodedFile &expected, std::span<const FrameMark> marks);

}  // namespace tavik
