// Signals: how an interrupted run ends without leaving an unfinished file behind, or a recording ends well.
#pragma once

#include <mutex>
#include <string>

namespace tavik {

// From now on a thread of its own waits for SIGINT, SIGTERM and SIGHUP (without those that the caller wants ignored),
// removes the files named to remove_on_interruption() and ends the program at once with status 128 + signal, whatever
// other threads do. The end by an exception that nothing can catch removes them too. A write that fails reports an
// error from now on instead of killing the program. To be called before any thread starts.
void watch_for_interruptions();

// From now on the first interruption ends nothing but the input. To be called before an input is opened.
void let_interruption_end_input();

// A descriptor that can be read from once the input is to end, for poll(); -1 when interruptions do not end inputs.
int end_of_input_event();

// An interruption has ended the input.
bool input_is_ended();

// Holds an interruption back while it is locked: files that it concerns are made, renamed or removed in one step with
// what follows from that.
std::unique_lock<std::mutex> hold_interruptions();

// Adds a file, in the directory with this descriptor, to those that an interruption removes, or takes it off. With
// interruptions held back.
void remove_on_interruption(int directory, const std::string &name);
void keep_on_interruption(int directory, const std::string &name);

// What the message of an interruption tells besides, in one line; empty: nothing.
void set_interruption_notice(const std::string &notice);

}  // namespace tavik
