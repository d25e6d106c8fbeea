#include "progress.h"

#include <fmt/format.h>

#include <algorithm>

#include "report.h"

namespace tavik {
namespace {

using namespace std::chrono_literals;

constexpr auto bar_interval = 100ms;
constexpr auto json_interval = 500ms;
constexpr size_t max_bar_columns = 40;  // columns
constexpr double min_fraction_for_eta = 0.005;

// "[=====>    ] ", or empty if there is no room for it.
std::string drawn_bar(double fraction, size_t columns) {
    constexpr size_t min_columns = 6;
    if (columns < min_columns) return "";
    const size_t inside = std::min(columns - 3, max_bar_columns);
    const auto filled = static_cast<size_t>(fraction * static_cast<double>(inside));
    const char *head = filled < inside ? ">" : "";
    return fmt::format("[{:<{}}] ", std::string(filled, '=') + head, inside);
}

}  // namespace

Progress::Progress(Console &console, std::span<const Job> jobs, Style style)
    : console_(console), jobs_(jobs), style_(style), states_(jobs.size()) {
    for (size_t i = 0; i < jobs.size(); ++i)
        states_[i].weight = static_cast<double>(std::max<uint64_t>(jobs[i].bytes, 1));
}

void Progress::update(size_t job, const FileProgress &progress) {
    if (style_ == Style::none) return;
    const std::lock_guard lock(mutex_);
    State &state = states_[job];
    state.progress = progress;
    const auto now = Clock::now();
    if (style_ == Style::json && now >= state.next_json) {
        state.next_json = now + json_interval;
        console_.result({progress_json(jobs_[job], progress)});
    }
    if (style_ == Style::bar && now >= next_bar_) {
        next_bar_ = now + bar_interval;
        console_.show_progress(bar_text());
    }
}

void Progress::finish(size_t job) {
    const std::lock_guard lock(mutex_);
    states_[job].is_finished = true;
}

std::string Progress::bar_text() const {
    double seconds = 0;
    double weight = 0;
    double done = 0;
    size_t finished = 0;
    bool is_known = true;
    for (const State &state : states_) {
        seconds += state.progress.seconds;
        weight += state.weight;
        done += state.weight * (state.is_finished ? 1 : state.progress.fraction());
        finished += state.is_finished ? 1 : 0;
        if (states_.size() == 1 && !state.progress.duration) is_known = false;
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
    const std::string speed = fmt::format("{:.0f}x", elapsed > 0 ? seconds / elapsed : 0);
    const size_t columns = Console::terminal_columns();
    if (!is_known) return fmt::format("{} of audio  {}", clock_text(seconds), speed).substr(0, columns - 1);

    const double fraction = std::clamp(done / weight, 0.0, 1.0);
    std::string text = fmt::format("{:3.0f} %", fraction * 100);
    if (states_.size() > 1) text += fmt::format("  {}/{} files", finished, states_.size());
    if (fraction > min_fraction_for_eta) text += "  ETA " + clock_text(elapsed * (1 - fraction) / fraction);
    text += "  " + speed;
    if (text.size() >= columns) return text.substr(0, columns - 1);
    return drawn_bar(fraction, columns - text.size()) + text;
}

}  // namespace tavik
