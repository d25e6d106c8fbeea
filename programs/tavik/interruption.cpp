// A thread that waits for the signals, and no signal handler: it may take locks, and it runs while others are blocked.
#include "interruption.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <set>
#include <string_view>
#include <thread>
#include <tuple>

namespace tavik {
namespace {

constexpr std::array interruptions{SIGINT, SIGTERM, SIGHUP};

struct TemporaryFiles {
    std::mutex mutex;
    std::set<std::string> paths;
};

// Never destroyed, because an interruption may come while the program ends.
TemporaryFiles &temporary_files() {
    static auto &files = *new TemporaryFiles;  // NOLINT(*-owning-memory,*-avoid-non-const-global-variables)
    return files;
}

bool is_ignored(int signal_number) {
    struct sigaction action {};
    sigaction(signal_number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// A hangup that the caller, such as nohup, wants ignored stays ignored. A shell lets background programs ignore SIGINT
// too, but whoever sends it by name means it.
sigset_t interruption_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : interruptions) {
        if (signal_number != SIGHUP || !is_ignored(SIGHUP)) sigaddset(&set, signal_number);
    }
    return set;
}

void remove_temporary_files() {
    for (const std::string &path : temporary_files().paths) ::unlink(path.c_str());
}

// When no way is left to report an error, such as memory that runs out once more while one is reported.
[[noreturn]] void abandon_program() {
    // Perhaps this very thread has it already.
    std::ignore = temporary_files().mutex.try_lock();
    remove_temporary_files();
    std::abort();
}

// The lock is not given back: nothing can make another file between the removal and the end. Writing a message may
// block, so that a second signal has its usual effect by then.
[[noreturn]] void end_program(const sigset_t &set, int signal_number) {
    hold_interruptions().release();
    remove_temporary_files();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    constexpr std::string_view clear_line = "\r\033[K";
    constexpr std::string_view message = "tavik: interrupted\n";
    if (::isatty(STDERR_FILENO) == 1) std::ignore = ::write(STDERR_FILENO, clear_line.data(), clear_line.size());
    std::ignore = ::write(STDERR_FILENO, message.data(), message.size());
    ::_exit(128 + signal_number);
}

}  // namespace

void watch_for_interruptions() {
    for (const int signal_number : {SIGPIPE, SIGXFSZ}) std::ignore = std::signal(signal_number, SIG_IGN);
    const sigset_t set = interruption_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    temporary_files();
    std::set_terminate(abandon_program);
    std::thread([set] {
        int signal_number = 0;
        if (sigwait(&set, &signal_number) == 0) end_program(set, signal_number);
    }).detach();
}

std::unique_lock<std::mutex> hold_interruptions() { return std::unique_lock(temporary_files().mutex); }

void remove_on_interruption(const std::string &path) { temporary_files().paths.insert(path); }

void keep_on_interruption(const std::string &path) { temporary_files().paths.erase(path); }

}  // namespace tavik
