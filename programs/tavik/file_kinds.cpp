#include "file_kinds.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace tavik {

FileKind kind_by_name(const std::filesystem::path &path) {
    static const std::set<std::string> audio{
        ".3ga", ".aac", ".ac3", ".adts", ".aif",  ".aifc", ".aiff", ".amr", ".ape", ".au",  ".caf",
        ".dff", ".dsf", ".dts", ".eac3", ".flac", ".gsm",  ".m4a",  ".m4b", ".mka", ".mp1", ".mp2",
        ".mp3", ".mpc", ".oga", ".ogg",  ".opus", ".ra",   ".rf64", ".shn", ".snd", ".spx", ".tak",
        ".tta", ".voc", ".w64", ".wav",  ".wave", ".weba", ".wma",  ".wv"};
    static const std::set<std::string> films{".3gp",  ".avi", ".flv", ".m2ts", ".m4v", ".mkv",  ".mov", ".mp4",
                                             ".mpeg", ".mpg", ".ogv", ".ts",   ".vob", ".webm", ".wmv"};
    const std::string extension = lower_case_extension(path);
    if (audio.contains(extension)) return FileKind::audio;
    return films.contains(extension) ? FileKind::film : FileKind::other;
}

std::string lower_case_extension(const std::filesystem::path &path) {
    std::string extension = path.extension();
    const auto is_part = [](unsigned char c) { return c == '.' || std::isalnum(c) != 0; };
    if (!std::ranges::all_of(extension, is_part)) return "";
    std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return std::tolower(c); });
    return extension;
}

}  // namespace tavik
