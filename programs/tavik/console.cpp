// Uses write() instead of the buffered streams: lines appear at once, and errors are seen at once.
#include "console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "retry.h"

namespace tavik {
namespace {

constexpr std::string_view clear_line = "\r\033[K";

bool write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && should_retry(descriptor, POLLOUT)) continue;
        if (written < 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// Also replaces C1 control characters, which have two bytes in UTF-8.
void replace_control_characters(std::string &text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : ' ');
        if (byte < ' ' || byte == 0x7F) text[i] = '?';
        if (byte == 0xC2 && next >= 0x80 && next < 0xA0) text.replace(i, 2, "?");
    }
}

}  // namespace

Console::Console(bool results_on_standard_error)
    : results_on_standard_error_(results_on_standard_error), has_terminal_(::isatty(STDERR_FILENO) == 1) {}

Console::~Console() { show_progress(""); }

void Console::result(std::vector<std::string> lines) {
    print(results_on_standard_error_ ? STDERR_FILENO : STDOUT_FILENO, std::move(lines));
}

void Console::problem(const std::string &line) { print(STDERR_FILENO, {"tavik: " + line}); }

unsigned Console::terminal_columns() {
    constexpr unsigned default_columns = 80;
    struct winsize size {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : default_columns;
}

void Console::show_progress(const std::string &bar) {
    const std::lock_guard lock(mutex_);
    if (!has_terminal_ || bar == bar_) return;
    bar_ = bar;
    write_all(STDERR_FILENO, std::string(clear_line) + bar_);
}

void Console::print(int descriptor, std::vector<std::string> lines) {
    std::string text;
    for (std::string &line : lines) {
        replace_control_characters(line);
        text += line + '\n';
    }
    const std::lock_guard lock(mutex_);
    if (!bar_.empty()) write_all(STDERR_FILENO, clear_line);
    if (!write_all(descriptor, text) && descriptor == STDOUT_FILENO) failed_ = true;
    if (!bar_.empty()) write_all(STDERR_FILENO, bar_);
}

}  // namespace tavik
