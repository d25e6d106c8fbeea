// What a file holds, as far as its name tells.
#pragma once

#include <filesystem>
#include <string>

namespace tavik {

enum class FileKind { other, audio, film };

FileKind kind_by_name(const std::filesystem::path &path);

// With its dot; empty where there is none, as in "2. Allegro".
std::string lower_case_extension(const std::filesystem::path &path);

}  // namespace tavik
