// Signals: how an interrupted run ends without leaving an unfinished file behind.
#pragma once

#include <mutex>
#include <string>

namespace tavik {

// From now on a thread of its own waits for SIGINT, SIGTERM and SIGHUP (unless that is ignored), removes the files
// named to remove_on_interruption() and ends the program at once with status 128 + signal, whatever other threads do.
// The end by an exception that nothing can catch removes them too. A write that fails reports an error from now on
// instead of killing the program. To be called before any thread starts.
void watch_for_interruptions();

// Holds an interruption back while it is locked: files that it concerns are made, renamed or removed in one step with
// what follows from that.
std::unique_lock<std::mutex> hold_interruptions();

// Adds a file to those that an interruption removes, or takes it off. With interruptions held back.
void remove_on_interruption(const std::string &path);
void keep_on_interruption(const std::string &path);

}  // namespace tavik
