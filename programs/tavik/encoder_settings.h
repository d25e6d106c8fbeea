// From the command line and the format of the input to the configuration of the library.
#pragma once

#include <tavik.h>

#include "audio_reader.h"
#include "options.h"

namespace tavik {

// Sampling rate to encode a source of `source_rate` Hz at: the same or the nearest supported one above, else 48000.
uint32_t choose_rate(uint32_t source_rate);

// Configures the encoder for a source. Throws ProgramError with ExitCode::usage when the bit rate is out of range.
EncoderConfig make_config(const Options &options, Format format, AudioFormat source);

}  // namespace tavik
