// Shows progress: on a terminal a bar with the remaining time, or JSON objects.
#pragma once

#include <chrono>
#include <mutex>
#include <span>
#include <vector>

#include "console.h"
#include "encode_file.h"
#include "jobs.h"

namespace tavik {

// Collects the progress of all files, from any thread, and shows it at intervals.
class Progress {
 public:
    enum class Style { none, bar, json };

    Progress(Console &console, std::span<const Job> jobs, Style style);

    // Sets the progress of a job; to be called often.
    void update(size_t job, const FileProgress &progress);

    // Marks a job as done, whether it succeeded or not.
    void finish(size_t job);

 private:
    using Clock = std::chrono::steady_clock;

    struct State {
        FileProgress progress;
        double weight = 1;  // size of the input in bytes
        bool is_finished = false;
        Clock::time_point next_json;
    };

    std::string bar_text() const;

    std::mutex mutex_;
    Console &console_;
    std::span<const Job> jobs_;
    Style style_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_bar_ = start_;
    std::vector<State> states_;
};

}  // namespace tavik
