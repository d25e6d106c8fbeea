// Tags and pictures on their way into MP4 files.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "output_file.h"
#include "tags.h"

namespace tavik {

// The part of a file that is to be played: `samples` per channel behind the priming frame, the first of `frames`.
struct PlayedPart {
    uint64_t frames;
    uint64_t samples;
};

// Puts tags into the complete MP4 file `output`, a regular file, and the played part for players that look for it there
// instead of into the edit list; not where the edit list tells more. Throws ProgramError with ExitCode::output.
void write_tags(OutputFile &output, const Tags &tags, const std::optional<PlayedPart> &played_part);

// Puts tags into the head of a fragmented MP4 stream while that passes.
class StreamTagger {
 public:
    // Keeps a reference to `tags`.
    explicit StreamTagger(const Tags &tags) : tags_(tags) {}

    // Takes the next bytes of the stream and returns those that can be written, valid until the next call. Nothing
    // leaves before the head is complete.
    std::span<const uint8_t> pass(std::span<const uint8_t> bytes);

 private:
    const Tags &tags_;
    std::vector<uint8_t> head_;
    bool is_done_ = false;
};

}  // namespace tavik
