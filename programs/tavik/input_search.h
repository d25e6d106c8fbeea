// Finds the inputs that the command line names: files, and the audio files below directories.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "options.h"

namespace tavik {

struct FoundInput {
    std::string path;
    std::filesystem::path relative;  // path of its output below the directory for outputs, before the extension changes
    bool found_in_directory = false;  // not named by the user itself
    std::string problem;              // why it cannot be an input; empty if it can
};

// All inputs in the order of the command line; files of a directory are sorted by name.
std::vector<FoundInput> find_inputs(const Options &options);

// Whether there are several inputs, or an input is a directory.
bool has_several_inputs(const Options &options);

}  // namespace tavik
