// Writes tags and pictures into MP4 files and streams.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "output_file.h"
#include "tags.h"

namespace tavik {

// The part of a file that players should play: `samples` samples per channel after the priming frame.
struct PlayedPart {
    uint64_t frames;   // all frames, including the priming frame
    uint64_t samples;  // per channel
};

// Writes tags into the complete MP4 file `output`, a regular file. The played part, if present, is written as a tag for
// players that ignore the edit list. Throws ProgramError with ExitCode::output.
void write_tags(OutputFile &output, const Tags &tags, const std::optional<PlayedPart> &played_part);

// Inserts tags into the header of a fragmented MP4 stream while the stream is written.
class StreamTagger {
 public:
    // Keeps a reference to `tags`.
    explicit StreamTagger(const Tags &tags) : tags_(tags) {}

    // Takes the next bytes of the stream and returns the bytes to write, valid until the next call. Returns nothing
    // until the header is complete.
    std::span<const uint8_t> process(std::span<const uint8_t> bytes);

 private:
    const Tags &tags_;
    std::vector<uint8_t> header_;
    bool is_done_ = false;
};

}  // namespace tavik
