#include "input_search.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <system_error>

#include "file_kinds.h"
#include "file_names.h"

namespace tavik {
namespace {

namespace fs = std::filesystem;

struct Search {
    fs::path outputs;               // the directory for outputs, which is not searched
    std::vector<FoundInput> found;  // audio files, and directories that cannot be read
    std::vector<fs::path> films;
};

// Adds the files below a directory, except hidden ones; links to directories are not followed. `relative` is the path
// of the directory below the directory for outputs.
// NOLINTNEXTLINE(misc-no-recursion): as deep as the directories are nested
void search(const fs::path &directory, const fs::path &relative, Search &result) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        if (!entry->path().filename().string().starts_with('.')) entries.push_back(*entry);
    }
    if (error) result.found.push_back({directory, relative, true, error.message()});
    std::ranges::sort(entries);
    for (const fs::directory_entry &entry : entries) {
        const fs::path &path = entry.path();
        std::error_code no_type;
        if (entry.is_directory(no_type) && !entry.is_symlink(no_type)) {
            if (!fs::equivalent(path, result.outputs, no_type)) search(path, relative / path.filename(), result);
        } else if (entry.is_regular_file(no_type)) {
            const FileKind kind = kind_by_name(path);
            if (kind == FileKind::audio) result.found.push_back({path, relative / path.filename(), true, {}});
            if (kind == FileKind::film) result.films.push_back(path);
        }
    }
}

// The last component of a directory's path, also for paths such as "." or "music/".
fs::path directory_name(const fs::path &directory) {
    std::error_code error;
    const fs::path normal = fs::absolute(directory, error).lexically_normal();
    return normal.has_filename() ? normal.filename() : normal.parent_path().filename();
}

std::string no_audio_message(const std::vector<fs::path> &films) {
    if (films.empty()) return "no audio files in this directory";
    return fmt::format("no audio files, but {} film{}; name them: tavik {}", films.size(), films.size() == 1 ? "" : "s",
                       films.front().string());
}

// If the text is a URL and not the name of a file, says how to encode what it refers to; otherwise empty.
std::string advice_for_url(const std::string &text) {
    const std::string scheme = text.substr(0, text.find("://"));
    const auto is_part = [](unsigned char c) { return std::isalnum(c) != 0 || c == '+' || c == '-' || c == '.'; };
    std::error_code error;
    if (scheme.empty() || scheme == text || !std::ranges::all_of(scheme, is_part) || fs::exists(text, error)) return "";
    if (scheme == "file") return "is a URL; name the file itself";
    const bool is_web = scheme == "http" || scheme == "https" || scheme == "ftp";
    return std::string("a URL; ") + (is_web ? "curl -L URL" : "ffmpeg -i URL -f wav -") + " | tavik - -o out.m4a";
}

bool is_directory(const std::string &input) {
    std::error_code error;
    return input != standard_stream && fs::is_directory(input, error);
}

}  // namespace

std::vector<FoundInput> find_inputs(const Options &options) {
    std::vector<FoundInput> all;
    for (const std::string &input : options.inputs) {
        if (!is_directory(input)) {
            all.push_back({input, fs::path(input).filename(), false, advice_for_url(input)});
            continue;
        }
        const fs::path relative = options.inputs.size() == 1 ? fs::path() : directory_name(input);
        Search result{options.output.value_or(""), {}, {}};
        search(input, relative, result);
        if (result.found.empty()) result.found.push_back({input, relative, true, no_audio_message(result.films)});
        all.insert(all.end(), result.found.begin(), result.found.end());
    }
    return all;
}

bool has_several_inputs(const Options &options) {
    return options.inputs.size() > 1 || std::ranges::any_of(options.inputs, is_directory);
}

}  // namespace tavik
