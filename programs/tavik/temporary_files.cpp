// A temporary file in use has a lock by flock(), which the system releases when the process ends for whatever reason.
#include "temporary_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

namespace tavik {
namespace {

constexpr std::string_view prefix = ".tavik-";
constexpr std::string_view suffix = ".tmp";

// True at the first call for a directory.
bool is_new(int directory) {
    static std::mutex mutex;
    static std::set<std::pair<dev_t, ino_t>> seen;
    struct stat status {};
    if (::fstat(directory, &status) != 0) return false;
    const std::lock_guard lock(mutex);
    return seen.emplace(status.st_dev, status.st_ino).second;
}

void remove_if_abandoned(int directory, const char *name) {
    const int file = ::openat(directory, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    struct stat status {};
    const bool is_file = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    if (is_file && ::flock(file, LOCK_EX | LOCK_NB) == 0) ::unlinkat(directory, name, 0);
    ::close(file);
}

}  // namespace

std::string temporary_name() {
    static std::atomic<unsigned> count = 0;
    return std::string(prefix) + std::to_string(::getpid()) + "-" + std::to_string(++count) + std::string(suffix);
}

bool lock_file(int file) {
    // If the file system has no locks, remove_if_abandoned() cannot get one either and keeps the file.
    ::flock(file, LOCK_EX);
    struct stat status {};
    return ::fstat(file, &status) == 0 && status.st_nlink > 0;
}

void remove_abandoned_files(int directory) {
    if (!is_new(directory)) return;
    const auto close = [](DIR *stream) { ::closedir(stream); };
    const std::unique_ptr<DIR, decltype(close)> stream(
        ::fdopendir(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), close);
    if (!stream) return;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread has this stream
    while (const dirent *entry = ::readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name.starts_with(prefix) && name.ends_with(suffix)) remove_if_abandoned(directory, entry->d_name);
    }
}

}  // namespace tavik
