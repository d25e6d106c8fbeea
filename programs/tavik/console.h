// Output for the user: lines on standard output and standard error, and on a terminal a progress bar below them.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace tavik {

// Prints whole lines, also from several threads. Control characters, such as a line break in a file name, become '?'.
class Console {
 public:
    // Results go to standard error when standard output carries the audio.
    explicit Console(bool results_on_standard_error);
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    // Prints result lines; lines of other threads do not come between them.
    void result(std::vector<std::string> lines);

    // Prints an error or a warning, with the program's name in front.
    void problem(const std::string &line);

    // Whether standard error is a terminal; and its width.
    bool has_terminal() const { return has_terminal_; }
    static unsigned terminal_columns();

    // Replaces the progress bar if there is a terminal. `bar` must fit the terminal's width; empty removes the bar.
    void show_progress(const std::string &bar);

    // Whether a result could not be written.
    bool failed() const { return failed_; }

 private:
    void print(int descriptor, std::vector<std::string> lines);

    std::mutex mutex_;
    bool results_on_standard_error_;
    bool has_terminal_;
    bool failed_ = false;
    std::string bar_;
};

}  // namespace tavik
