// The streams whose digests are on record in test-data/stream_digests.txt.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/signals.h"
#include "tavik.h"

namespace tavik_test {

// A synthesised stream.
struct GoldenStream {
    std::string name;  // signal, rate, mode, bit rate per channel, framing and options: says the whole configuration
    EncoderConfig config;
    SignalKind signal;

    std::vector<std::int16_t> pcm(std::size_t samples_per_channel = 12 * 1024 + 345) const;
};

// Every rate, mode, framing and option, at the lowest, a usual and the highest bit rate, each with a signal of its own.
std::vector<GoldenStream> golden_streams();

// A stream of a recording of test-data/reference.
struct ReferenceStream {
    std::string name;
    EncoderConfig config;
    std::vector<std::int16_t> pcm;
};

// Those of test-data/reference/streams.csv.
std::vector<ReferenceStream> reference_streams();

// The samples of a recording: 16 bits, little-endian, interleaved.
std::vector<std::int16_t> read_recording(const std::string &name);

}  // namespace tavik_test
