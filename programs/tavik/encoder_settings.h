// From the command line and the format of the input to the configuration of the library.
#pragma once

#include <tavik.h>

#include "audio_reader.h"
#include "options.h"

namespace tavik {

// Number of channels that a stream of this configuration carries.
uint32_t channel_count(const EncoderConfig &config);

// Sampling rate to encode a source of `source_rate` Hz at: the same or the nearest supported one above, else 48000.
uint32_t choose_rate(uint32_t source_rate);

// Bit/s per channel that are used when none are asked for: 64000, in proportion less below 44100 Hz.
uint32_t default_bit_rate(uint32_t rate);

// Configures the encoder for a source. Throws ProgramError with ExitCode::usage when the bit rate is out of range.
EncoderConfig make_config(const Options &options, Format format, AudioFormat source);

}  // namespace tavik
