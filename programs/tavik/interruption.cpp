// A thread that waits for the signals, and no signal handler: it may take locks, and it runs while others are blocked.
#include "interruption.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <set>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

namespace tavik {
namespace {

constexpr std::array interruptions{SIGINT, SIGTERM, SIGHUP};

struct State {
    std::mutex mutex;                                       // for the two members below
    std::set<std::pair<int, std::string>> temporary_files;  // descriptors of directories, names in them
    std::string notice;
    std::atomic<int> end_of_input = -1;
    std::atomic<bool> input_is_ended = false;
};

// Never destroyed, because an interruption may come while the program ends.
State &state() {
    static auto &only_one = *new State;  // NOLINT(*-owning-memory,*-avoid-non-const-global-variables)
    return only_one;
}

bool is_ignored(int signal_number) {
    struct sigaction action {};
    sigaction(signal_number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// What the caller wants ignored stays ignored: nohup the hangup, a shell SIGINT for programs in the background.
sigset_t interruption_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal_number : interruptions) {
        if (!is_ignored(signal_number)) sigaddset(&set, signal_number);
    }
    return set;
}

void remove_temporary_files() {
    for (const auto &[directory, name] : state().temporary_files) ::unlinkat(directory, name.c_str(), 0);
}

// When no way is left to report an error, such as memory that runs out once more while one is reported.
[[noreturn]] void abandon_program() {
    // Perhaps this very thread has it already.
    std::ignore = state().mutex.try_lock();
    remove_temporary_files();
    std::abort();
}

// The lock is not given back: nothing can make another file between the removal and the end. Writing a message may
// block, so that a second signal has its usual effect by then.
[[noreturn]] void end_program(const sigset_t &set, int signal_number) {
    hold_interruptions().release();
    remove_temporary_files();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    const std::string clear_line = ::isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
    const std::string notice = state().notice.empty() ? "" : "; " + state().notice;
    const std::string message = clear_line + "tavik: interrupted" + notice + "\n";
    std::ignore = ::write(STDERR_FILENO, message.data(), message.size());
    ::_exit(128 + signal_number);
}

// Ends the input if an interruption may do so and none has done it yet.
bool end_input() {
    const int event = state().end_of_input;
    if (event < 0 || state().input_is_ended.exchange(true)) return false;
    ::eventfd_write(event, 1);
    return true;
}

}  // namespace

void watch_for_interruptions() {
    for (const int signal_number : {SIGPIPE, SIGXFSZ}) std::ignore = std::signal(signal_number, SIG_IGN);
    const sigset_t set = interruption_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    state();
    std::set_terminate(abandon_program);
    std::thread([set] {
        int signal_number = 0;
        while (sigwait(&set, &signal_number) == 0) {
            if (!end_input()) end_program(set, signal_number);
        }
    }).detach();
}

void let_interruption_end_input() {
    const int event = ::eventfd(0, EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    state().end_of_input = event;
}

int end_of_input_event() { return state().end_of_input; }

bool input_is_ended() { return state().input_is_ended; }

std::unique_lock<std::mutex> hold_interruptions() { return std::unique_lock(state().mutex); }

void remove_on_interruption(int directory, const std::string &name) {
    state().temporary_files.emplace(directory, name);
}

void keep_on_interruption(int directory, const std::string &name) { state().temporary_files.erase({directory, name}); }

void set_interruption_notice(const std::string &notice) {
    const auto hold = hold_interruptions();
    state().notice = notice;
}

}  // namespace tavik
