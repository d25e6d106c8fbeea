// The command-line encoder tavik. Every error becomes a message and an exit status here.
#include <fcntl.h>
#include <unistd.h>

#include <exception>

#include "batch.h"
#include "console.h"
#include "ffmpeg_log.h"
#include "file_names.h"
#include "interruption.h"
#include "options.h"
#include "program_error.h"

namespace {

using namespace tavik;

ExitCode run(const Options &options) {
    const bool to_standard_output = options.output == standard_stream;
    Console console(to_standard_output);
    try {
        if (to_standard_output && ::isatty(STDOUT_FILENO) == 1) {
            throw ProgramError(ExitCode::usage, "standard output", "is a terminal; audio is not written to it");
        }
        if (options.live) end_input_on_interruption();
        const ExitCode exit_code = run_batch(options, console);
        if (exit_code != ExitCode::ok || !console.failed()) return exit_code;
        throw ProgramError(ExitCode::output, "standard output", "cannot write the report");
    } catch (const ProgramError &error) {
        console.problem(error.what());
        return error.exit_code();
    }
}

ExitCode run(int argc, const char *const *argv) {
    try {
        const auto options = parse_options(argc, argv);
        return options ? run(*options) : ExitCode::ok;
    } catch (const ProgramError &error) {
        Console(true).problem(error.what());
        return error.exit_code();
    } catch (const std::exception &error) {
        Console(true).problem(std::string("internal error: ") + error.what());
        return ExitCode::internal;
    }
}

// Opens /dev/null for standard streams that the caller has closed. Otherwise a file could get the descriptor of one of
// them, and messages would be written into it. Read-only, so that writing results still fails.
void reserve_standard_descriptors() {
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDONLY);
    if (descriptor > STDERR_FILENO) ::close(descriptor);
}

}  // namespace

int main(int argc, char **argv) {
    reserve_standard_descriptors();
    watch_for_interruptions();
    capture_ffmpeg_log();
    return static_cast<int>(run(argc, argv));
}
