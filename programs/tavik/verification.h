// Trust is good: the finished output read back by libavcodec, which shares nothing with the encoder.
#pragma once

#include <cstdint>
#include <span>

#include "encode_file.h"
#include "output_file.h"

namespace tavik {

// Decodes the output, which is complete but still has its temporary name, and compares its rate, channels, number of
// frames and length with what was encoded. Throws ProgramError with ExitCode::output when anything differs, the decoder
// complains or the output cannot be read back. frame_sizes: bytes of each frame, headers included.
void verify(const OutputFile &output, const EncodedFile &expected, std::span<const uint16_t> frame_sizes);

}  // namespace tavik
