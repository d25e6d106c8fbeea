// The handler itself removes the file and ends the program, because a blocking read may never come back.
#include "interruption.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <string_view>

namespace tavik {
namespace {

constexpr std::array interruptions{SIGINT, SIGTERM, SIGHUP};

// Global, because a signal handler takes no argument of ours.
std::atomic<const char *> file_to_remove{nullptr};  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
static_assert(std::atomic<const char *>::is_always_lock_free, "the signal handler reads it");

// Only calls that are safe in a signal handler.
extern "C" void end_program(int signal_number) {
    if (const char *path = file_to_remove.load()) ::unlink(path);
    constexpr std::string_view message = "tavik: interrupted\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, message.data(), message.size());
    ::_exit(128 + signal_number);
}

sigset_t interruption_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : interruptions) sigaddset(&set, signal_number);
    return set;
}

bool is_ignored(int signal_number) {
    struct sigaction action {};
    sigaction(signal_number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

}  // namespace

void install_interruption_handlers() {
    struct sigaction action {};
    action.sa_handler = end_program;
    action.sa_mask = interruption_set();
    for (const int signal_number : interruptions) {
        const bool keep_ignored = signal_number == SIGHUP && is_ignored(SIGHUP);
        if (!keep_ignored) sigaction(signal_number, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    for (const int signal_number : {SIGPIPE, SIGXFSZ}) sigaction(signal_number, &action, nullptr);
}

void remove_on_interruption(const char *path) { file_to_remove.store(path); }

InterruptionBlock::InterruptionBlock() {
    const sigset_t set = interruption_set();
    pthread_sigmask(SIG_BLOCK, &set, &previous_mask_);
}

InterruptionBlock::~InterruptionBlock() { pthread_sigmask(SIG_SETMASK, &previous_mask_, nullptr); }

}  // namespace tavik
