// The exception for all errors of the program. main() and Batch turn it into a message and an exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace tavik {

// Exit statuses of the program. An interruption by signal N exits with 128 + N.
enum class ExitCode : int { ok = 0, some_failed = 1, usage = 2, input = 3, output = 4, internal = 70 };

// what() names the file or option and the problem.
class ProgramError : public std::runtime_error {
 public:
    ProgramError(ExitCode exit_code, const std::string &subject, const std::string &problem)
        : ProgramError(exit_code, subject + ": " + problem) {}

    // For a message that already names its subject.
    ProgramError(ExitCode exit_code, const std::string &message) : std::runtime_error(message), exit_code_(exit_code) {}

    ExitCode exit_code() const { return exit_code_; }

 private:
    ExitCode exit_code_;
};

}  // namespace tavik
