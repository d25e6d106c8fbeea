// The list of files to encode, with the names of the outputs, which are checked against the inputs and each other.
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
    uint64_t bytes = 0;                   // size of the input, 0 if unknown
    bool found_in_directory = false;      // the input is not named by the user itself
    bool makes_directories = false;       // the directory of the output is created if necessary
    std::string skip_reason;              // why it is skipped; empty if it is not
    std::optional<ProgramError> problem;  // why it cannot be done
};

// The jobs that the command line asks for, in the order of the inputs, files of a directory sorted by name. Throws
// ProgramError when the output has to be a directory and is not, or when options do not fit the jobs.
std::vector<Job> plan_jobs(const Options &options);

}  // namespace tavik
