// What the command line names as inputs: files, and directories that stand for the audio files below them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "options.h"

namespace tavik {

// An input with the place of its output below the directory for outputs.
struct Found {
    std::string path;
    std::filesystem::path place;
    bool by_search = false;  // found in a directory, not named by the user
    std::string problem;     // why it is none
};

// In the order of the command line, the files of a directory sorted by name.
std::vector<Found> find_inputs(const Options &options);

// A directory is among the inputs, or there are several of them.
bool has_several_inputs(const Options &options);

}  // namespace tavik
