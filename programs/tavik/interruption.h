// Signals: an interrupted run leaves no unfinished files, and a recording is completed.
#pragma once

#include <mutex>
#include <string>

namespace tavik {

// Starts a thread that waits for SIGINT, SIGTERM and SIGHUP, except those that the caller has set to be ignored. On a
// signal it removes the files passed to remove_on_interruption() and ends the program at once with status
// 128 + signal, whatever other threads do. std::terminate() removes them too. SIGPIPE and SIGXFSZ are ignored, so that
// failed writes return errors. To be called before any other thread starts.
void watch_for_interruptions();

// From now on the first signal only ends the input. To be called before an input is opened.
void end_input_on_interruption();

// A descriptor for poll() that becomes readable when a signal ends the input; -1 without end_input_on_interruption().
int end_of_input_event();

// Whether a signal has ended the input.
bool input_has_ended();

// A lock that delays the handling of signals. To be held while a temporary file is created, renamed or removed and the
// list of files to remove is updated.
std::unique_lock<std::mutex> block_interruptions();

// Add a file, in the directory with this descriptor, to those that an interruption removes, or take it off the list. To
// be called with the lock of block_interruptions().
void remove_on_interruption(int directory, const std::string &name);
void keep_on_interruption(int directory, const std::string &name);

// Sets a text to append to the message about an interruption; empty: none.
void set_interruption_notice(const std::string &notice);

}  // namespace tavik
