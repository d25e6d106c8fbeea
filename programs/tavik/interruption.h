// Signals: how an interrupted run ends without leaving an unfinished file behind.
#pragma once

#include <csignal>

namespace tavik {

// From now on SIGINT, SIGTERM and SIGHUP remove the file named to remove_on_interruption() and end the program at once
// with status 128 + signal, even inside a blocking read. A SIGHUP that is ignored stays ignored. A write that fails
// reports an error instead of killing the program.
void install_interruption_handlers();

// Names the file that an interruption removes; the string must stay alive until the next call. nullptr: none.
void remove_on_interruption(const char *path);

// Holds interruptions back during its life.
class InterruptionBlock {
 public:
    InterruptionBlock();
    ~InterruptionBlock();
    InterruptionBlock(const InterruptionBlock &) = delete;
    InterruptionBlock &operator=(const InterruptionBlock &) = delete;

 private:
    sigset_t previous_mask_{};
};

}  // namespace tavik
