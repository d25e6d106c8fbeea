// Signals are received by a thread with sigwait() instead of a signal handler: it may take locks, and it runs even
// while all other threads are blocked.
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
    std::mutex mutex;                                       // guards the two members below
    std::set<std::pair<int, std::string>> temporary_files;  // descriptor of the directory, name in it
    std::string notice;
    std::atomic<int> end_of_input = -1;  // an eventfd
    std::atomic<bool> input_has_ended = false;
};

// Never destroyed, because a signal may arrive while the program ends.
State &state() {
    static auto &only_one = *new State;  // NOLINT(*-owning-memory,*-avoid-non-const-global-variables)
    return only_one;
}

bool is_ignored(int signal_number) {
    struct sigaction action {};
    sigaction(signal_number, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

// Signals that the caller has set to be ignored stay ignored: nohup does so with SIGHUP, shells with SIGINT for
// programs in the background.
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

// Called by std::terminate() when an error cannot be reported, for example because memory runs out again meanwhile.
[[noreturn]] void abort_program() {
    // Does not wait, because this thread may hold the lock.
    std::ignore = state().mutex.try_lock();
    remove_temporary_files();
    std::abort();
}

// Keeps the lock until the end, so that no file can be created after the removal. Writing the message may block;
// therefore the signals are unblocked first, and a second one ends the program.
[[noreturn]] void end_program(const sigset_t &set, int signal_number) {
    block_interruptions().release();
    remove_temporary_files();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    const std::string clear_line = ::isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
    const std::string notice = state().notice.empty() ? "" : "; " + state().notice;
    const std::string message = clear_line + "tavik: interrupted" + notice + "\n";
    std::ignore = ::write(STDERR_FILENO, message.data(), message.size());
    ::_exit(128 + signal_number);
}

// Ends the input if that is enabled and has not happened yet; otherwise false.
bool end_input() {
    const int event = state().end_of_input;
    if (event < 0 || state().input_has_ended.exchange(true)) return false;
    ::eventfd_write(event, 1);
    return true;
}

}  // namespace

void watch_for_interruptions() {
    for (const int signal_number : {SIGPIPE, SIGXFSZ}) std::ignore = std::signal(signal_number, SIG_IGN);
    const sigset_t set = interruption_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    state();
    std::set_terminate(abort_program);
    std::thread([set] {
        int signal_number = 0;
        while (sigwait(&set, &signal_number) == 0) {
            if (!end_input()) end_program(set, signal_number);
        }
    }).detach();
}

void end_input_on_interruption() {
    const int event = ::eventfd(0, EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    state().end_of_input = event;
}

int end_of_input_event() { return state().end_of_input; }

bool input_has_ended() { return state().input_has_ended; }

std::unique_lock<std::mutex> block_interruptions() { return std::unique_lock(state().mutex); }

void remove_on_interruption(int directory, const std::string &name) {
    state().temporary_files.emplace(directory, name);
}

void keep_on_interruption(int directory, const std::string &name) { state().temporary_files.erase({directory, name}); }

void set_interruption_notice(const std::string &notice) {
    const auto lock = block_interruptions();
    state().notice = notice;
}

}  // namespace tavik
