// Names of outputs: whether --output is a file or a directory, and which format goes with which extension.
#pragma once

#include <filesystem>
#include <string>

#include "options.h"

namespace tavik {

// --output names a directory, and not a file. Throws ProgramError with ExitCode::usage when it is no directory, but the
// outputs of several inputs or of a directory go there.
bool is_output_directory(const Options &options, bool takes_several);

// What is written into the file that --output names. Throws ProgramError with ExitCode::usage when files of that format
// have other extensions. Devices, FIFOs and names without extension go with any.
Format format_of_output(const Options &options);

// The path with this extension in place of the one that it has, if any.
std::string with_extension(std::filesystem::path path, const char *extension);

}  // namespace tavik
