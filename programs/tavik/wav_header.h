// The header of a WAV file (RIFF/WAVE, or RF64 for more than 4 Gbyte), as far as the program has to know it itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "options.h"

namespace tavik {

// A header in front of samples without compression.
struct WavHeader {
    PcmFormat format;
    std::optional<double> seconds;       // length of the samples; nothing where the header does not tell
    std::optional<uint64_t> data_bytes;  // the same in bytes
};

// Adds exactly so many of the next bytes; false when there are not so many.
using ReadMore = std::function<bool(std::vector<uint8_t> &, size_t)>;

// Reads a header byte for byte into `head`, up to the samples. Nothing when it is another one than those that are known
// here, longer than 64 Kbyte, or ends too early; `head` then has what has been read.
std::optional<WavHeader> read_wav_header(std::vector<uint8_t> &head, const ReadMore &read_more);

// That of a file.
std::optional<WavHeader> wav_header_of(const std::string &path);

}  // namespace tavik
