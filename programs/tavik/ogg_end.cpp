#include "ogg_end.h"

#include <algorithm>
#include <fstream>
#include <numeric>
#include <string_view>
#include <vector>

namespace tavik {
namespace {

constexpr std::streamoff largest_page = 65307;

// Layout of a page: capture pattern, version, flags, ..., number of segments and the size of each, then the segments.
constexpr std::string_view capture_pattern = "OggS";
constexpr size_t flags_at = 5;
constexpr unsigned end_of_stream = 4;
constexpr size_t segment_count_at = 26;

}  // namespace

bool lacks_ogg_end(const std::string &path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    if (size < 0) return false;
    std::string tail(static_cast<size_t>(std::min(size, largest_page)), '\0');
    file.seekg(-static_cast<std::streamoff>(tail.size()), std::ios::end);
    file.read(tail.data(), static_cast<std::streamsize>(tail.size()));

    const size_t start = tail.rfind(capture_pattern);
    if (!file) return false;
    if (start == std::string::npos) return true;
    const std::vector<uint8_t> page(tail.begin() + static_cast<std::ptrdiff_t>(start), tail.end());
    if (page.size() <= segment_count_at) return true;
    const size_t segments_at = segment_count_at + 1 + page[segment_count_at];
    if (page.size() < segments_at) return true;
    const size_t bytes = std::accumulate(page.begin() + segment_count_at + 1,
                                         page.begin() + static_cast<std::ptrdiff_t>(segments_at), segments_at);
    return page.size() < bytes || (page[flags_at] & end_of_stream) == 0;
}

}  // namespace tavik
