// From the inputs to the list of files to encode: outputs named, and checked against inputs and each other.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "options.h"
#include "program_error.h"

namespace tavik {

// One file to encode.
struct Job {
    std::string input;
    std::string output;
    Format format = Format::m4a;
    uint64_t bytes = 0;                   // of the input, 0 where that is not known
    bool is_searched = false;             // found in a directory, not named by the user
    bool makes_directories = false;       // those of the output, which mirror the input's
    std::string skip_reason;              // why it need not be done; empty if it has to be
    std::optional<ProgramError> problem;  // why it cannot be done
};

// The work that the command line asks for, in the order of the inputs, a directory's files sorted by name. Throws
// ProgramError when the output is no directory but has to be, or options do not go with it.
std::vector<Job> plan_jobs(const Options &options);

}  // namespace tavik
