// Kinds of files, recognised by the extension of the name.
#pragma once

#include <filesystem>
#include <string>

namespace tavik {

enum class FileKind { other, audio, film };

FileKind kind_by_name(const std::filesystem::path &path);

// The extension in lower case, with its dot; empty if there is none, as in "2. Allegro".
std::string lower_case_extension(const std::filesystem::path &path);

}  // namespace tavik
