// The synthesised streams whose digests are on record in test-data/golden_digests.txt.
#pragma once

#include <string>
#include <vector>

#include "support/signals.h"
#include "tavik.h"

namespace tavik_test {

struct GoldenStream {
    std::string name;  // signal, rate, mode, bit rate per channel, framing and options: says the whole configuration
    EncoderConfig config;
    SignalKind signal;
};

// Every rate, mode, framing and option, at the lowest, a usual and the highest bit rate, each with a signal of its own.
std::vector<GoldenStream> golden_streams();

// SHA-256 of the stream's bytes; the stream also passes the strict reader.
std::string golden_digest(const GoldenStream &golden);

}  // namespace tavik_test
