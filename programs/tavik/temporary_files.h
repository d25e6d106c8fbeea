// Temporary files: their names, and the removal of those that a killed run has left.
#pragma once

#include <string>

namespace tavik {

// Returns a new name at each call, short enough for any file system.
std::string temporary_name();

// Locks a file until it is closed, so that other runs do not remove it. False if one has removed it just before.
bool lock_file(int file);

// Removes temporary files that are not in use from a directory, given by its descriptor. Does so once per directory.
void remove_abandoned_files(int directory);

}  // namespace tavik
