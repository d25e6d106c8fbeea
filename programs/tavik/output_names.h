// Names of outputs: whether --output is a file or a directory, and which extensions belong to which format.
#pragma once

#include <filesystem>
#include <string>

#include "options.h"

namespace tavik {

// Whether --output names a directory instead of a file. takes_several: there are several inputs, or a directory is
// among them. Throws ProgramError with ExitCode::usage when --output then cannot be a directory.
bool is_output_directory(const Options &options, bool takes_several);

// Format of the file that --output names. Throws ProgramError with ExitCode::usage when its extension belongs to
// another format. Devices, FIFOs and names without an extension go with every format.
Format format_of_output(const Options &options);

// Replaces the extension of the path, or appends one if it has none.
std::string with_extension(std::filesystem::path path, const char *extension);

}  // namespace tavik
