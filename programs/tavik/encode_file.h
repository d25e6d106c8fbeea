// The work of one run of the program, between the command line and the exit status.
#pragma once

#include "options.h"

namespace tavik {

// Encodes options.input to options.output and says on stderr what it did, unless quiet. Throws ProgramError; the output
// is then as it was before.
void encode_file(const Options &options);

}  // namespace tavik
