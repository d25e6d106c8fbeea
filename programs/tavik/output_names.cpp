#include "output_names.h"

#include <algorithm>
#include <array>
#include <functional>
#include <string_view>
#include <system_error>
#include <utility>

#include "file_kinds.h"
#include "file_names.h"
#include "program_error.h"

namespace tavik {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::pair<std::string_view, Format>, 7> extensions{{{".m4a", Format::m4a},
                                                                         {".mp4", Format::m4a},
                                                                         {".m4b", Format::m4a},
                                                                         {".aac", Format::adts},
                                                                         {".adts", Format::adts},
                                                                         {".adif", Format::adif},
                                                                         {".raw", Format::raw_frames}}};

std::optional<Format> format_by_name(const fs::path &path) {
    const auto *const found =
        std::ranges::find(extensions, lower_case_extension(path), [](const auto &it) { return it.first; });
    return found != extensions.end() ? std::optional(found->second) : std::nullopt;
}

// Whether the name goes with every format: devices, FIFOs, standard output and names without an extension.
bool fits_any_format(const fs::path &path) {
    std::error_code error;
    const bool is_special = fs::exists(path, error) && !fs::is_regular_file(path, error);
    return is_special || path == standard_stream || lower_case_extension(path).empty();
}

// Extensions of the selected formats, each with a space in front.
std::string list_of_extensions(const std::function<bool(Format)> &is_listed) {
    std::string list;
    for (const auto &[extension, format] : extensions) {
        if (is_listed(format)) list.append(" ").append(extension);
    }
    return list;
}

void check_name(const std::string &output, Format format) {
    const std::optional<Format> named = format_by_name(output);
    const bool fits = named ? *named == format : kind_by_name(output) == FileKind::other;
    if (fits) return;
    const std::string list = list_of_extensions([format](Format its_format) { return its_format == format; });
    throw ProgramError(ExitCode::usage, output, std::string("with --") + names_of(format).option + " use" + list);
}

}  // namespace

bool is_output_directory(const Options &options, bool takes_several) {
    if (!options.output || *options.output == standard_stream) return false;
    const std::string &output = *options.output;
    std::error_code error;
    if (fs::is_directory(output, error)) return true;
    if (takes_several && fs::exists(output, error)) {
        throw ProgramError(ExitCode::usage, output, "is not a directory, but there are several outputs");
    }
    if (output.ends_with('/')) return true;
    const bool looks_like_file = format_by_name(output) || kind_by_name(output) != FileKind::other;
    if (takes_several && looks_like_file) {
        throw ProgramError(ExitCode::usage, output,
                           "is a single file for several outputs; for a directory use " + output + "/");
    }
    return takes_several;
}

Format format_of_output(const Options &options) {
    const std::string &output = *options.output;
    const bool fits_any = fits_any_format(output);
    if (options.format) {
        if (!fits_any) check_name(output, *options.format);
        return *options.format;
    }
    const std::optional<Format> named = format_by_name(output);
    if (named && *named != Format::raw_frames) return *named;
    if (fits_any) return Format::m4a;
    const std::string list = list_of_extensions([](Format format) { return format != Format::raw_frames; });
    throw ProgramError(ExitCode::usage, output, "use" + list + " (.raw with --raw-frames)");
}

std::string with_extension(fs::path path, const char *extension) {
    return lower_case_extension(path).empty() ? path += extension : path.replace_extension(extension);
}

}  // namespace tavik
