// The program tavik, a command-line encoder on top of the library: turns every error into a line and an exit status.
#include <exception>

#include "encode_file.h"
#include "interruption.h"
#include "message.h"
#include "options.h"
#include "program_error.h"

namespace {

tavik::ExitCode run(int argc, const char *const *argv) {
    try {
        if (const auto options = tavik::parse_options(argc, argv)) tavik::encode_file(*options);
        return tavik::ExitCode::ok;
    } catch (const tavik::ProgramError &error) {
        tavik::print_line(std::string("tavik: ") + error.what());
        return error.exit_code();
    } catch (const std::exception &error) {
        tavik::print_line(std::string("tavik: internal error: ") + error.what());
        return tavik::ExitCode::internal;
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavik::install_interruption_handlers();
    return static_cast<int>(run(argc, argv));
}
