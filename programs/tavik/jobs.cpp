// The whole list is made before any work starts, so that no output of one file can become the input of another.
#include "jobs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "file_names.h"
#include "mp4_muxer.h"
#include "program_error.h"

namespace tavik {
namespace {

namespace fs = std::filesystem;

// Extensions of the files that a directory stands for.
const std::set<std::string> &audio_extensions() {
    static const std::set<std::string> extensions{
        ".3ga", ".aac", ".ac3", ".adts", ".aif",  ".aifc", ".aiff", ".amr", ".ape", ".au",  ".caf",
        ".dff", ".dsf", ".dts", ".eac3", ".flac", ".gsm",  ".m4a",  ".m4b", ".mka", ".mp1", ".mp2",
        ".mp3", ".mpc", ".oga", ".ogg",  ".opus", ".ra",   ".rf64", ".shn", ".snd", ".spx", ".tak",
        ".tta", ".voc", ".w64", ".wav",  ".wave", ".weba", ".wma",  ".wv"};
    return extensions;
}

std::string lower_case_extension(const fs::path &path) {
    std::string extension = path.extension();
    std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return std::tolower(c); });
    return extension;
}

// In place of the extension that there is, which "2. Allegro" has none.
fs::path with_extension(fs::path path, const char *extension) {
    const std::string present = path.extension();
    const bool is_extension = std::all_of(present.begin() + (present.empty() ? 0 : 1), present.end(),
                                          [](unsigned char c) { return std::isalnum(c) != 0; });
    return is_extension ? path.replace_extension(extension) : path += extension;
}

Format format_by_name(const fs::path &output) {
    const std::string extension = lower_case_extension(output);
    if (extension == ".aac" || extension == ".adts") return Format::adts;
    return extension == ".adif" ? Format::adif : Format::m4a;
}

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

// An input with the place of its output below the directory for outputs.
struct Found {
    std::string path;
    fs::path place;
    bool by_search = false;  // found in a directory, not named by the user
    std::string problem;     // of a directory
};

// Adds all audio files below a directory, without hidden files and directories and those below `outputs`, if that is a
// directory; links to directories are not followed.
// NOLINTNEXTLINE(misc-no-recursion): as deep as the directories are
void search(const fs::path &directory, const fs::path &place, const std::string &outputs, std::vector<Found> &found) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        if (!entry->path().filename().string().starts_with('.')) entries.push_back(*entry);
    }
    if (error) found.push_back({directory, place, true, error.message()});
    std::ranges::sort(entries);
    for (const fs::directory_entry &entry : entries) {
        const fs::path &path = entry.path();
        std::error_code no_type;
        if (entry.is_directory(no_type) && !entry.is_symlink(no_type)) {
            if (!fs::equivalent(path, outputs, no_type)) search(path, place / path.filename(), outputs, found);
        } else if (entry.is_regular_file(no_type) && audio_extensions().contains(lower_case_extension(path))) {
            found.push_back({path, place / path.filename(), true, {}});
        }
    }
}

// The last part of a directory's name, also of one such as "." or "music/".
fs::path own_name(const fs::path &directory) {
    std::error_code error;
    const fs::path normal = fs::absolute(directory, error).lexically_normal();
    return normal.has_filename() ? normal.filename() : normal.parent_path().filename();
}

std::vector<Found> find_inputs(const Options &options) {
    std::vector<Found> all;
    for (const std::string &input : options.inputs) {
        std::error_code error;
        if (input == standard_stream || !fs::is_directory(input, error)) {
            all.push_back({input, fs::path(input).filename(), false, {}});
            continue;
        }
        const fs::path place = options.inputs.size() == 1 ? fs::path() : own_name(input);
        std::vector<Found> found;
        search(input, place, options.output.value_or(""), found);
        if (found.empty()) found.push_back({input, place, true, "no audio files in this directory"});
        all.insert(all.end(), found.begin(), found.end());
    }
    return all;
}

// --output names a directory, and not a file.
bool is_output_directory(const Options &options) {
    if (!options.output || *options.output == standard_stream) return false;
    std::error_code error;
    const bool searched = std::ranges::any_of(options.inputs, [&](const std::string &input) {
        return input != standard_stream && fs::is_directory(input, error);
    });
    const bool needed = options.inputs.size() > 1 || searched;
    const bool exists = fs::exists(*options.output, error);
    const bool is_directory = fs::is_directory(*options.output, error);
    if (needed && exists && !is_directory) {
        throw ProgramError(ExitCode::usage, *options.output, "is not a directory, as several outputs need it");
    }
    return needed || is_directory || options.output->ends_with('/');
}

Job make_job(const Found &found, const Options &options, bool into_directory) {
    Job job;
    job.input = found.path;
    job.makes_directories = into_directory;
    const bool is_named = options.output && !into_directory;
    job.format = options.format.value_or(is_named ? format_by_name(*options.output) : Format::m4a);
    if (is_named) {
        job.output = *options.output;
    } else if (found.path == standard_stream) {
        throw ProgramError(ExitCode::usage, "--output", "must name a file for standard input");
    } else {
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

// Takes out what earlier runs have made: MP4 files of this program, found in a directory, that are their own outputs or
// that of another input. What else has the place of its own output stays there and is skipped.
void sort_out_results(std::vector<Job> &jobs, const std::vector<Found> &found) {
    std::map<std::string, int> claims;  // to each output
    for (const Job &job : jobs) ++claims[key_of(job.output)];
    std::vector<Job> kept;
    for (size_t i = 0; i < jobs.size(); ++i) {
        Job &job = jobs[i];
        if (found[i].by_search && lower_case_extension(job.input) == names_of(job.format).extension) {
            const bool is_own_output = input_identity(job) == output_identity(job);
            const bool may_be_ours = job.format == Format::m4a && (is_own_output || claims[key_of(job.output)] > 1);
            if (may_be_ours && is_made_by_tavik(job.input)) continue;
            if (is_own_output) job.skip_reason = "would be its own output";
        }
        kept.push_back(std::move(job));
    }
    jobs = std::move(kept);
}

// Of inputs with the same output the first gets it, but one without loss goes before others: those may have been made
// of it.
std::map<std::string, const Job *> share_out_outputs(const std::vector<Job> &jobs) {
    static const std::set<std::string> lossless{".aif", ".aifc", ".aiff", ".ape", ".au",  ".caf",  ".flac", ".rf64",
                                                ".shn", ".tak",  ".tta",  ".w64", ".wav", ".wave", ".wv"};
    const auto is_lossless = [](const Job &job) { return lossless.contains(lower_case_extension(job.input)); };
    std::map<std::string, const Job *> owners;
    for (const Job &job : jobs) {
        if (job.problem || !job.skip_reason.empty()) continue;
        const Job *&owner = owners.emplace(key_of(job.output), &job).first->second;
        if (is_lossless(job) && !is_lossless(*owner)) owner = &job;
    }
    return owners;
}

// Skips inputs whose outputs exist, if that is asked for.
void skip_existing(std::vector<Job> &jobs) {
    for (Job &job : jobs) {
        const bool is_skipped = !job.skip_reason.empty() || job.output == standard_stream;
        if (!is_skipped && !job.problem && output_identity(job)) job.skip_reason = "exists already";
    }
}

// Finds outputs that exist, and those that would destroy an input or another output.
void check_outputs(std::vector<Job> &jobs, bool replaces) {
    std::set<Identity> inputs;
    for (const Job &job : jobs) {
        if (const auto input = input_identity(job)) inputs.insert(*input);
    }
    std::map<std::string, const Job *> owners = share_out_outputs(jobs);
    for (Job &job : jobs) {
        if (job.problem || !job.skip_reason.empty()) continue;
        const auto output = output_identity(job);
        const Job *owner = owners[key_of(job.output)];
        if (output && inputs.contains(*output)) {
            job.problem = ProgramError(ExitCode::output, output_name(job.output), "is an input file");
        } else if (owner != &job) {
            const std::string text = job.output + " is already the output for " + owner->input;
            job.problem = ProgramError(ExitCode::output, job.input, text);
        } else if (output && !replaces && job.output != standard_stream) {
            job.problem = ProgramError(ExitCode::output, job.output, "exists already (-f replaces it)");
        }
    }
}

}  // namespace

std::vector<Job> plan_jobs(const Options &options) {
    const bool into_directory = is_output_directory(options);
    const std::vector<Found> found = find_inputs(options);
    if (options.output == standard_stream && found.size() > 1) {
        throw ProgramError(ExitCode::usage, "--output", "standard output takes one input only");
    }
    std::vector<Job> jobs;
    jobs.reserve(found.size());
    for (const Found &input : found) jobs.push_back(make_job(input, options, into_directory));
    sort_out_results(jobs, found);
    if (options.skip_existing) skip_existing(jobs);
    check_outputs(jobs, options.replace);
    return jobs;
}

}  // namespace tavik
