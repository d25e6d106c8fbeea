// Files that have a name before they are complete: whose they are, and which a dead run has left behind.
#pragma once

#include <string>

namespace tavik {

// A short name, so that it fits wherever another one does; a new one at each call.
std::string temporary_name();

// Marks a file as belonging to this run until it is closed. False when another run has removed it just before that.
bool claim_file(int file);

// Removes the temporary files in a directory, given by its descriptor, that belong to no run any more. Looks at each
// directory only once.
void remove_abandoned_files(int directory);

}  // namespace tavik
