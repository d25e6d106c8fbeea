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
    fs::path outputs;          // a directory that is left out
    std::vector<Found> found;  // audio files
    std::vector<fs::path> films;
};

// Adds what is below a directory, without hidden files and directories; links to directories are not followed.
// NOLINTNEXTLINE(misc-no-recursion): as deep as the directories are
void search(const fs::path &directory, const fs::path &place, Search &result) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        if (!entry->path().filename().string().starts_with('.')) entries.push_back(*entry);
    }
    if (error) result.found.push_back({directory, place, true, error.message()});
    std::ranges::sort(entries);
    for (const fs::directory_entry &entry : entries) {
        const fs::path &path = entry.path();
        std::error_code no_type;
        if (entry.is_directory(no_type) && !entry.is_symlink(no_type)) {
            if (!fs::equivalent(path, result.outputs, no_type)) search(path, place / path.filename(), result);
        } else if (entry.is_regular_file(no_type)) {
            const FileKind kind = kind_by_name(path);
            if (kind == FileKind::audio) result.found.push_back({path, place / path.filename(), true, {}});
            if (kind == FileKind::film) result.films.push_back(path);
        }
    }
}

// The last part of a directory's name, also of one such as "." or "music/".
fs::path own_name(const fs::path &directory) {
    std::error_code error;
    const fs::path normal = fs::absolute(directory, error).lexically_normal();
    return normal.has_filename() ? normal.filename() : normal.parent_path().filename();
}

std::string lack_of_audio(const std::vector<fs::path> &films) {
    if (films.empty()) return "no audio files in this directory";
    return fmt::format("no audio files, but {} film{}; name them: tavik {}", films.size(), films.size() == 1 ? "" : "s",
                       films.front().string());
}

// How to come by what a URL stands for; nothing where the text is none, or a file with such a name.
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

std::vector<Found> find_inputs(const Options &options) {
    std::vector<Found> all;
    for (const std::string &input : options.inputs) {
        if (!is_directory(input)) {
            all.push_back({input, fs::path(input).filename(), false, advice_for_url(input)});
            continue;
        }
        const fs::path place = options.inputs.size() == 1 ? fs::path() : own_name(input);
        Search result{options.output.value_or(""), {}, {}};
        search(input, place, result);
        if (result.found.empty()) result.found.push_back({input, place, true, lack_of_audio(result.films)});
        all.insert(all.end(), result.found.begin(), result.found.end());
    }
    return all;
}

bool has_several_inputs(const Options &options) {
    return options.inputs.size() > 1 || std::ranges::any_of(options.inputs, is_directory);
}

}  // namespace tavik
