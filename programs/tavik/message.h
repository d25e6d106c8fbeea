// What the program says on stderr: errors, warnings and the summary of a run.
#pragma once

#include <string>

namespace tavik {

// Prints one line to stderr. Control characters, such as a line break in a file name, become '?'.
void print_line(std::string text);

}  // namespace tavik
