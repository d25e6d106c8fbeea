// Tags and pictures on their way into MP4 files.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "output_file.h"
#include "tags.h"

namespace tavik {

// Puts tags into the complete MP4 file `output`, a regular file of `frames` frames, the first of them the priming
// frame, of which `samples` per channel are to be played. Throws ProgramError with ExitCode::output.
void write_tags(OutputFile &output, const Tags &tags, uint64_t frames, uint64_t samples);

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
