// Names of inputs and outputs, as the command line and messages have them.
#pragma once

#include <string>

namespace tavik {

// Name on the command line of standard input and standard output.
inline constexpr const char *standard_stream = "-";

inline std::string input_name(const std::string &path) { return path == standard_stream ? "standard input" : path; }

inline std::string output_name(const std::string &path) { return path == standard_stream ? "standard output" : path; }

}  // namespace tavik
