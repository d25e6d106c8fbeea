// Encoder configuration from the command line and the format of the input.
#pragma once

#include <tavik.h>

#include "audio_reader.h"
#include "options.h"

namespace tavik {

// Sampling rate for a source of `source_rate` Hz: the same if it is supported, else the next higher one, at most 48000.
uint32_t choose_rate(uint32_t source_rate);

// Configures the encoder for a source. Throws ProgramError with ExitCode::usage when the bit rate is not valid.
EncoderConfig make_config(const Options &options, Format format, AudioFormat source);

}  // namespace tavik
