// Encodes all files of a run, several at a time.
#pragma once

#include "console.h"
#include "options.h"
#include "program_error.h"

namespace tavik {

// Does what the command line asks for. A file that fails does not stop the others. Throws ProgramError if the options
// do not fit the inputs.
ExitCode run_batch(const Options &options, Console &console);

}  // namespace tavik
