// What an endless input is written into until it ends: files that outlive the program, however that ends.
#pragma once

#include <tavik.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "audio_decoder.h"
#include "output_file.h"
#include "tag_writer.h"

namespace tavik {

// While it lives, a thread of its own brings what is written to the disk every two seconds, so that a power failure
// costs no more than that, and nothing has to wait for the disk.
class DiskKeeper {
 public:
    // Keeps a reference to `file`.
    explicit DiskKeeper(const OutputFile &file);

    // Throws ProgramError with ExitCode::output when the disk has failed so far.
    void check() const;

 private:
    void work(const std::stop_token &stop);

    const OutputFile &file_;
    std::atomic<int> error_ = 0;
    std::mutex mutex_;     // of the thread alone, for its waiting
    std::jthread thread_;  // the last one: it uses the others
};

// Copies the frames of a complete fragmented MP4 file, of which there are so many, into one with an index in front.
// Throws ProgramError with ExitCode::output, also when they are not all to be found.
void copy_recording(const OutputFile &recording, OutputFile &output, const EncoderConfig &config,
                    const AudioDecoder &source, const Tags &tags, const PlayedPart &recorded);

}  // namespace tavik
