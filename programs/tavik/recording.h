// Recordings of endless inputs: files that survive a crash of the program or the machine.
#pragma once

#include <tavik.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "audio_decoder.h"
#include "output_file.h"
#include "tag_writer.h"

namespace tavik {

// While this object exists, a thread flushes the file to the disk every two seconds, so that a power failure loses
// little and encoding does not wait for the disk.
class PeriodicSync {
 public:
    // Keeps a reference to `file`.
    explicit PeriodicSync(const OutputFile &file);

    // Throws ProgramError with ExitCode::output if flushing has failed.
    void check() const;

 private:
    void work(const std::stop_token &stop);

    const OutputFile &file_;
    std::atomic<int> error_ = 0;
    std::mutex mutex_;     // only for the condition variable of the thread
    std::jthread thread_;  // the last member, because it uses the others
};

// Copies the frames of a complete fragmented MP4 file into one with an index in front. Throws ProgramError with
// ExitCode::output, also if their number is not recorded.frames.
void copy_recording(const OutputFile &recording, OutputFile &output, const EncoderConfig &config,
                    const AudioDecoder &source, const Tags &tags, const PlayedPart &recorded);

}  // namespace tavik
