// The whole list is made before any work starts, so that no output of one file can become the input of another.
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

// Which regular file it is, whatever its name.
using Identity = std::pair<dev_t, ino_t>;

// `standard_descriptor` is meant by standard_stream.
std::optional<Identity> identity_of(const std::string &path, int standard_descriptor) {
    struct stat status {};
    const int result = path == standard_stream ? ::fstat(standard_descriptor, &status) : ::stat(path.c_str(), &status);
    if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return Identity{status.st_dev, status.st_ino};
}

std::optional<Identity> input_identity(const Job &job) { return identity_of(job.input, STDIN_FILENO); }

std::optional<Identity> output_identity(const Job &job) { return identity_of(job.output, STDOUT_FILENO); }

Job make_job(const Found &found, const Options &options, bool into_directory) {
    Job job;
    job.input = found.path;
    job.is_searched = found.by_search;
    job.makes_directories = into_directory;
    if (options.output && !into_directory) {
        job.format = format_of_output(options);
        job.output = *options.output;
    } else if (found.path == standard_stream) {
        throw ProgramError(ExitCode::usage, "--output", "must name a file for standard input");
    } else {
        job.format = options.format.value_or(Format::m4a);
        const fs::path place = into_directory ? *options.output / found.place : fs::path(found.path);
        job.output = with_extension(place, names_of(job.format).extension);
    }
    if (!found.problem.empty()) job.problem = ProgramError(ExitCode::input, found.path, found.problem);
    std::error_code no_size;
    const uint64_t bytes = job.input == standard_stream ? 0 : fs::file_size(job.input, no_size);
    job.bytes = no_size ? 0 : bytes;
    return job;
}

// A path by which two names of one file can be told to be that, also before the file exists.
std::string key_of(const std::string &path) {
    std::error_code error;
    const fs::path canonical = fs::weakly_canonical(path, error);
    return error ? path : canonical.string();
}

// Of what directories hold, leaves out the MP4 files that earlier runs have made of others that are there too: they are
// not encoded once more, and may be replaced. Skips what would be its own output.
void sort_out_results(std::vector<Job> &jobs) {
    const std::string result_extension = names_of(Format::m4a).extension;
    const auto may_be_result = [&](const Job &job) { return lower_case_extension(job.input) == result_extension; };
    std::set<std::string> outputs_of_originals;
    for (const Job &job : jobs) {
        if (!may_be_result(job)) outputs_of_originals.insert(key_of(job.output));
    }
    std::erase_if(jobs, [&](const Job &job) {
        const bool has_original = may_be_result(job) && outputs_of_originals.contains(key_of(job.output));
        return job.is_searched && has_original && is_made_by_tavik(job.input);
    });
    for (Job &job : jobs) {
        const bool is_own_output = job.is_searched && !job.problem && input_identity(job) == output_identity(job);
        if (is_own_output) job.skip_reason = "would be its own output";
    }
}

// The output is not older than the input; of standard input that is not known.
bool is_up_to_date(const Job &job) {
    std::error_code no_time;
    const auto input_time = fs::last_write_time(job.input, no_time);
    if (no_time || job.input == standard_stream) return false;
    return fs::last_write_time(job.output, no_time) >= input_time && !no_time;
}

// Skips inputs whose outputs exist, if that is asked for.
void skip_existing(std::vector<Job> &jobs, const Options &options) {
    for (Job &job : jobs) {
        const bool is_settled = !job.skip_reason.empty() || job.problem || job.output == standard_stream;
        if (is_settled || !output_identity(job)) continue;
        if (options.skip_existing) job.skip_reason = "exists already";
        if (options.update && is_up_to_date(job)) job.skip_reason = "is up to date";
    }
}

// Inputs by their outputs, without those that are not encoded anyway.
std::map<std::string, std::vector<const Job *>> claims_of(const std::vector<Job> &jobs) {
    std::map<std::string, std::vector<const Job *>> claims;
    for (const Job &job : jobs) {
        if (!job.problem && job.skip_reason.empty()) claims[key_of(job.output)].push_back(&job);
    }
    return claims;
}

// Finds outputs that exist, and those that would destroy an input or another output: of inputs with the same output
// none gets it, because which one is meant, such as the FLAC or the MP3 file of a song, is not known here.
void check_outputs(std::vector<Job> &jobs, bool replaces) {
    std::set<Identity> inputs;
    for (const Job &job : jobs) {
        if (const auto input = input_identity(job)) inputs.insert(*input);
    }
    auto claims = claims_of(jobs);
    for (Job &job : jobs) {
        if (job.problem || !job.skip_reason.empty()) continue;
        const auto output = output_identity(job);
        const std::vector<const Job *> &rivals = claims[key_of(job.output)];
        if (output && inputs.contains(*output)) {
            job.problem = ProgramError(ExitCode::output, output_name(job.output), "is an input file");
        } else if (rivals.size() > 1) {
            const Job &other = *rivals[rivals[0] == &job ? 1 : 0];
            job.problem =
                ProgramError(ExitCode::output, job.input, job.output + " is the output of " + other.input + " too");
        } else if (output && !replaces && job.output != standard_stream) {
            job.problem = ProgramError(ExitCode::output, job.output, "exists already (-f replaces it)");
        }
    }
}

// What options ask of all inputs together.
void check_options(const Options &options, const std::vector<Job> &jobs) {
    if (options.live && jobs.size() != 1) throw ProgramError(ExitCode::usage, "--live", "takes one input only");
    const bool is_for_tags = options.loudness && options.loudness_gain == LoudnessGain::none;
    const auto has_tags = [](const Job &job) { return job.format == Format::m4a; };
    if (is_for_tags && !std::ranges::all_of(jobs, has_tags)) {
        throw ProgramError(ExitCode::usage, "--loudness", "only M4A has a place for it (--apply-loudness works)");
    }
}

}  // namespace

std::vector<Job> plan_jobs(const Options &options) {
    const bool into_directory = is_output_directory(options, has_several_inputs(options));
    const std::vector<Found> found = find_inputs(options);
    if (options.output == standard_stream && found.size() > 1) {
        throw ProgramError(ExitCode::usage, "--output", "standard output takes one input only");
    }
    std::vector<Job> jobs;
    jobs.reserve(found.size());
    for (const Found &input : found) jobs.push_back(make_job(input, options, into_directory));
    check_options(options, jobs);
    sort_out_results(jobs);
    skip_existing(jobs, options);
    check_outputs(jobs, options.replace || options.update);
    return jobs;
}

}  // namespace tavik
