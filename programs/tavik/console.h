// What the program says: lines on standard output and standard error, and below them, on a terminal, a progress bar.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace tavik {

// Prints lines in one piece, also when several threads have something to say. Control characters in them, such as
// a line break in a file name, become '?'.
class Console {
 public:
    // Results go to standard error when standard output carries the audio.
    explicit Console(bool results_on_standard_error);
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    // Lines about what was done; nothing else comes between them.
    void result(std::vector<std::string> lines);

    // A line about what is wrong; the program's name is put in front.
    void problem(const std::string &line);

    // Standard error is a terminal, of this width.
    bool has_terminal() const { return has_terminal_; }
    static unsigned terminal_columns();

    // Replaces the progress bar, nothing where there is no terminal. It fits the terminal's width; empty: no bar.
    void show_progress(const std::string &bar);

    // A result could not be written.
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
