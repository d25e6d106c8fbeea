// Worker threads take the next job from one list. Reports about a file do not depend on the number of threads.
#include "batch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "encode_file.h"
#include "jobs.h"
#include "progress.h"
#include "report.h"

namespace tavik {
namespace {

namespace fs = std::filesystem;

// The reports about each file.
enum class Reports { none, text, json };

Reports choose_reports(const Options &options) {
    if (options.json) return Reports::json;
    return options.quiet ? Reports::none : Reports::text;
}

Progress::Style choose_progress(const Options &options, const Console &console) {
    if (options.no_progress || options.quiet) return Progress::Style::none;
    if (options.json) return Progress::Style::json;
    return console.has_terminal() ? Progress::Style::bar : Progress::Style::none;
}

class Batch {
 public:
    Batch(const Options &options, Console &console)
        : options_(options),
          console_(console),
          reports_(choose_reports(options)),
          jobs_(plan_jobs(options)),
          loudness_(jobs_.size()),
          progress_(console, jobs_, choose_progress(options, console)) {
        summary_.files = jobs_.size();
    }

    ExitCode run() {
        const auto start = std::chrono::steady_clock::now();
        if (options_.loudness) measure();
        for_all_jobs([this](size_t job) {
            do_job(job);
            progress_.finish(job);
        });
        console_.show_progress("");
        summary_.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        report_summary();
        return exit_code();
    }

 private:
    using Task = std::function<void(size_t)>;  // the argument is the index of a job

    // Runs the task for each job, in several threads. Returns when all are done.
    void for_all_jobs(const Task &task) {
        const size_t cores = std::max<size_t>(1, std::thread::hardware_concurrency());
        const size_t workers = std::min(options_.jobs > 0 ? options_.jobs : cores, jobs_.size());
        std::atomic<size_t> next = 0;
        const auto work = [&] {
            for (size_t i = next++; i < jobs_.size(); i = next++) task(i);
        };
        std::vector<std::jthread> threads;
        start_threads(workers - std::min<size_t>(workers, 1), work, threads);
        work();
    }

    // Starts up to `workers` threads; fewer if the system refuses to create more.
    static void start_threads(size_t workers, const std::function<void()> &work, std::vector<std::jthread> &threads) {
        try {
            for (size_t i = 0; i < workers; ++i) threads.emplace_back(work);
        } catch (const std::system_error &) {  // NOLINT(bugprone-empty-catch): the existing threads do the work
        }
    }

    // Measures all files before any is encoded: the loudness of an album needs all files of its directory, even
    // skipped ones.
    void measure() {
        std::vector<LoudnessState> states(jobs_.size());
        for_all_jobs([&](size_t i) {
            const auto report = [this, i](const FileProgress &progress) { progress_.update(i, progress); };
            try {
                states[i] = measure_file(options_, jobs_[i], report);
            } catch (
                const std::exception &) {  // NOLINT(bugprone-empty-catch): encoding fails again and reports the error
            }
        });
        std::map<fs::path, std::vector<ebur128_state *>> albums;
        for (size_t i = 0; i < jobs_.size(); ++i) {
            if (states[i]) albums[fs::path(jobs_[i].input).parent_path()].push_back(states[i].get());
        }
        for (size_t i = 0; i < jobs_.size(); ++i) {
            if (!states[i]) continue;
            const std::array track{states[i].get()};
            const auto &album = albums[fs::path(jobs_[i].input).parent_path()];
            loudness_[i].track = replay_gain(track);
            if (album.size() > 1) loudness_[i].album = replay_gain(album);
        }
    }

    void do_job(size_t index) {
        const Job &job = jobs_[index];
        try {
            if (!job.skip_reason.empty()) {
                report_skipped(job);
                return;
            }
            const auto report = [this, index](const FileProgress &progress) { progress_.update(index, progress); };
            report_encoded(job, encode_file(options_, job, loudness_[index], report));
        } catch (const ProgramError &error) {
            report_failed(job, error);
        } catch (const std::exception &error) {
            report_failed(job,
                          ProgramError(ExitCode::internal, job.input, std::string("internal error: ") + error.what()));
        }
    }

    void report_encoded(const Job &job, const EncodedFile &file) {
        {
            const std::lock_guard lock(mutex_);
            ++summary_.encoded;
            summary_.duration += file.duration();
        }
        for (const std::string &warning : file.warnings) console_.problem(warning_text(job, warning));
        if (reports_ == Reports::text) console_.result(encoded_text(job, file, options_.verbose));
        if (reports_ == Reports::json) console_.result({encoded_json(job, file)});
    }

    void report_skipped(const Job &job) {
        {
            const std::lock_guard lock(mutex_);
            ++summary_.skipped;
        }
        if (reports_ == Reports::text) console_.result({skipped_text(job)});
        if (reports_ == Reports::json) console_.result({skipped_json(job)});
    }

    void report_failed(const Job &job, const ProgramError &error) {
        {
            const std::lock_guard lock(mutex_);
            ++summary_.failed;
            latest_failure_ = error.exit_code();
        }
        console_.problem(error.what());
        if (reports_ == Reports::json) console_.result({failed_json(job, error.what(), error.exit_code())});
    }

    void report_summary() {
        if (reports_ == Reports::text && jobs_.size() != 1) console_.result({summary_text(summary_)});
        if (reports_ == Reports::json) console_.result({summary_json(summary_)});
    }

    ExitCode exit_code() const {
        if (summary_.failed == 0) return ExitCode::ok;
        return jobs_.size() == 1 ? latest_failure_ : ExitCode::some_failed;
    }

    const Options &options_;
    Console &console_;
    Reports reports_;
    std::vector<Job> jobs_;
    std::vector<Loudness> loudness_;  // by index of the job
    Progress progress_;
    std::mutex mutex_;  // guards the two members below
    Summary summary_;
    ExitCode latest_failure_ = ExitCode::ok;
};

}  // namespace

ExitCode run_batch(const Options &options, Console &console) { return Batch(options, console).run(); }

}  // namespace tavik
