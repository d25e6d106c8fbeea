// The whole list is made before any file is encoded, so that an output cannot become the input of another job.
#include "jobs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "file_kinds.h"
#include "file_names.h"
#include "input_search.h"
#include "mp4_muxer.h"
#include "output_names.h"
#include "program_error.h"

namespace tavik {
namespace {

namespace fs = std::filesystem;

// Identifies a regular file independently of its names.
using Identity = std::pair<dev_t, ino_t>;

// `standard_descriptor` is what standard_stream refers to.
std::optional<Identity> identity_of(const std::string &path, int standard_descriptor) {
    struct stat status {};
    const int result = path == standard_stream ? ::fstat(standard_descriptor, &status) : ::stat(path.c_str(), &status);
    if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return Identity{status.st_dev, status.st_ino};
}

std::optional<Identity> input_identity(const Job &job) { return identity_of(job.input, STDIN_FILENO); }

std::optional<Identity> output_identity(const Job &job) { return identity_of(job.output, STDOUT_FILENO); }

Job make_job(const FoundInput &found, const Options &options, bool into_directory) {
    Job job;
    job.input = found.path;
    job.found_in_directory = found.found_in_directory;
    job.makes_directories = into_directory;
    if (options.output && !into_directory) {
        job.format = format_of_output(options);
        job.output = *options.output;
    } else if (found.path == standard_stream) {
        throw ProgramError(ExitCode::usage, "--output", "must name a file for standard input");
    } else {
        job.format = options.format.value_or(Format::m4a);
        const fs::path path = into_directory ? *options.output / found.relative : fs::path(found.path);
        job.output = with_extension(path, names_of(job.format).extension);
    }
    if (!found.problem.empty()) job.problem = ProgramError(ExitCode::input, found.path, found.problem);
    std::error_code no_size;
    const uint64_t bytes = job.input == standard_stream ? 0 : fs::file_size(job.input, no_size);
    job.bytes = no_size ? 0 : bytes;
    return job;
}

// The canonical path: the same for different names of one file, also before the file exists.
std::string key_of(const std::string &path) {
    std::error_code error;
    const fs::path canonical = fs::weakly_canonical(path, error);
    return error ? path : canonical.string();
}

// Handles files that were found in directories and may be outputs. M4A files that an earlier run made from another
// input are removed from the list, so that they can be replaced. A file that would be its own output is skipped.
void skip_own_outputs(std::vector<Job> &jobs) {
    const std::string m4a_extension = names_of(Format::m4a).extension;
    const auto is_m4a = [&](const Job &job) { return lower_case_extension(job.input) == m4a_extension; };
    std::set<std::string> outputs_of_originals;
    for (const Job &job : jobs) {
        if (!is_m4a(job)) outputs_of_originals.insert(key_of(job.output));
    }
    std::erase_if(jobs, [&](const Job &job) {
        const bool has_original = is_m4a(job) && outputs_of_originals.contains(key_of(job.output));
        return job.found_in_directory && has_original && is_made_by_tavik(job.input);
    });
    for (Job &job : jobs) {
        const bool would_replace_input =
            job.found_in_directory && !job.problem && input_identity(job) == output_identity(job);
        if (would_replace_input) job.skip_reason = "would be its own output";
    }
}

// Whether the output is at least as new as the input; never for standard input.
bool is_up_to_date(const Job &job) {
    std::error_code no_time;
    const auto input_time = fs::last_write_time(job.input, no_time);
    if (no_time || job.input == standard_stream) return false;
    return fs::last_write_time(job.output, no_time) >= input_time && !no_time;
}

// Skips inputs whose output exists or is up to date, as the options ask.
void skip_existing(std::vector<Job> &jobs, const Options &options) {
    for (Job &job : jobs) {
        const bool is_decided = !job.skip_reason.empty() || job.problem || job.output == standard_stream;
        if (is_decided || !output_identity(job)) continue;
        if (options.skip_existing) job.skip_reason = "exists already";
        if (options.update && is_up_to_date(job)) job.skip_reason = "is up to date";
    }
}

// Jobs grouped by their output, without those that are not encoded anyway.
std::map<std::string, std::vector<const Job *>> inputs_by_output(const std::vector<Job> &jobs) {
    std::map<std::string, std::vector<const Job *>> result;
    for (const Job &job : jobs) {
        if (!job.problem && job.skip_reason.empty()) result[key_of(job.output)].push_back(&job);
    }
    return result;
}

// Finds outputs that exist, that are inputs, or that several inputs have in common. In the last case none of them is
// encoded: it is unknown which one is meant, for example the FLAC or the MP3 file of a song.
void check_outputs(std::vector<Job> &jobs, bool replaces) {
    std::set<Identity> inputs;
    for (const Job &job : jobs) {
        if (const auto input = input_identity(job)) inputs.insert(*input);
    }
    auto by_output = inputs_by_output(jobs);
    for (Job &job : jobs) {
        if (job.problem || !job.skip_reason.empty()) continue;
        const auto output = output_identity(job);
        const std::vector<const Job *> &same_output = by_output[key_of(job.output)];
        if (output && inputs.contains(*output)) {
            job.problem = ProgramError(ExitCode::output, output_name(job.output), "is an input file");
        } else if (same_output.size() > 1) {
            const Job &other = *same_output[same_output[0] == &job ? 1 : 0];
            job.problem =
                ProgramError(ExitCode::output, job.input, job.output + " is also the output of " + other.input);
        } else if (output && !replaces && job.output != standard_stream) {
            job.problem = ProgramError(ExitCode::output, job.output, "exists already (-f replaces it)");
        }
    }
}

// Checks options that concern all jobs together.
void check_options(const Options &options, const std::vector<Job> &jobs) {
    if (options.live && jobs.size() != 1) throw ProgramError(ExitCode::usage, "--live", "takes only one input");
    const bool is_for_tags = options.loudness && options.loudness_gain == LoudnessGain::none;
    const auto has_tags = [](const Job &job) { return job.format == Format::m4a; };
    if (is_for_tags && !std::ranges::all_of(jobs, has_tags)) {
        throw ProgramError(ExitCode::usage, "--loudness", "only M4A can store it (--apply-loudness works)");
    }
}

}  // namespace

std::vector<Job> plan_jobs(const Options &options) {
    const bool into_directory = is_output_directory(options, has_several_inputs(options));
    const std::vector<FoundInput> found = find_inputs(options);
    if (options.output == standard_stream && found.size() > 1) {
        throw ProgramError(ExitCode::usage, "--output", "standard output takes only one input");
    }
    std::vector<Job> jobs;
    jobs.reserve(found.size());
    for (const FoundInput &input : found) jobs.push_back(make_job(input, options, into_directory));
    check_options(options, jobs);
    skip_own_outputs(jobs);
    skip_existing(jobs, options);
    check_outputs(jobs, options.replace || options.update);
    return jobs;
}

}  // namespace tavik
