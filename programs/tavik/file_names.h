// Names of inputs and outputs on the command line and in messages.
#pragma once

#include <string>

namespace tavik {

// Name of standard input and standard output on the command line.
inline constexpr const char *standard_stream = "-";

inline std::string input_name(const std::string &path) { return path == standard_stream ? "standard input" : path; }

inline std::string output_name(const std::string &path) { return path == standard_stream ? "standard output" : path; }

}  // namespace tavik
