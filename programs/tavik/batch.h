// All files of a run, several at once.
#pragma once

#include "console.h"
#include "options.h"
#include "program_error.h"

namespace tavik {

// Does what the command line asks for. One file that fails does not stop the others. Throws ProgramError when the work
// cannot even be planned.
ExitCode run_batch(const Options &options, Console &console);

}  // namespace tavik
