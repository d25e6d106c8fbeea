// Plain POSIX calls: they tell exactly what failed.
#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "interruption.h"
#include "program_error.h"
#include "waiting.h"

namespace tavik {
namespace {

constexpr unsigned new_file_permissions = 0666;  // less the umask
constexpr unsigned permission_bits = 0777;
constexpr int max_links = 40;  // in a chain of symbolic links, as the system allows
constexpr int max_name_attempts = 100;

// Type and permissions of an existing file.
std::optional<mode_t> mode_of(const std::string &path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status.st_mode;
}

// The name at the end of a chain of symbolic links, whether or not it exists.
std::filesystem::path resolve_links(std::filesystem::path path) {
    std::error_code error;
    for (int i = 0; i < max_links && std::filesystem::is_symlink(path, error); ++i) {
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path;
}

// A short name beside `path`, so that it fits wherever `path` does; a new one at each call.
std::string temporary_name(const std::filesystem::path &path) {
    static std::atomic<unsigned> count = 0;
    const std::string name = ".tavik-" + std::to_string(::getpid()) + "-" + std::to_string(++count) + ".tmp";
    return path.parent_path() / name;
}

// rename() that fails with EEXIST when there is something under the new name. Where the file system cannot do both in
// one step, it is tested before.
int rename_to_new(const std::string &from, const std::string &to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    if (mode_of(to)) {
        errno = EEXIST;
        return -1;
    }
    return ::rename(from.c_str(), to.c_str());
}

// Makes a new name last through a power failure where the file system has a way to; not a reason to give up elsewhere.
void sync_directory(const std::filesystem::path &file) {
    const std::filesystem::path directory = file.has_parent_path() ? file.parent_path() : ".";
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fsync(descriptor);
    ::close(descriptor);
}

}  // namespace

bool OutputFile::is_direct(const std::string &path) {
    const std::optional<mode_t> mode = mode_of(path);
    return path == standard_stream || (mode && !S_ISREG(*mode));
}

OutputFile::OutputFile(const std::string &path, Existing existing) : path_(path), existing_(existing) {
    const std::optional<mode_t> old = mode_of(path);
    if (old && existing == Existing::refuse && (S_ISREG(*old) || S_ISBLK(*old)) && path != standard_stream) {
        errno = EEXIST;
        fail("cannot create");
    }
    if (is_direct(path)) {
        open_directly();
        return;
    }
    final_path_ = resolve_links(path);
    if (old && ::faccessat(AT_FDCWD, final_path_.c_str(), W_OK, AT_EACCESS) != 0) fail("cannot replace");
    create_temporary(old.value_or(new_file_permissions) & permission_bits);
    if (old) ::fchmod(descriptor_, *old & permission_bits);  // what the umask took; where that is possible
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (!is_temporary()) return;
    const auto hold = hold_interruptions();
    ::unlink(temporary_path_.c_str());
    keep_on_interruption(temporary_path_);
}

void OutputFile::open_directly() {
    descriptor_ = path_ == standard_stream ? STDOUT_FILENO : ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor_ < 0) fail("cannot open");
}

void OutputFile::create_temporary(unsigned permissions) {
    const auto hold = hold_interruptions();
    for (int attempt = 0; attempt < max_name_attempts; ++attempt) {
        std::string temporary = temporary_name(final_path_);
        descriptor_ = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
        if (descriptor_ >= 0) {
            temporary_path_ = std::move(temporary);
            remove_on_interruption(temporary_path_);
            return;
        }
        if (errno != EEXIST) break;
    }
    fail("cannot create");
}

void OutputFile::write(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && can_go_on(descriptor_, POLLOUT)) continue;
        if (written < 0) fail("cannot write");
        bytes = bytes.subspan(static_cast<size_t>(written));
        position_ += static_cast<uint64_t>(written);
    }
    size_ = std::max(size_, position_);
}

int64_t OutputFile::seek(int64_t offset, int whence) {
    const int64_t position = ::lseek(descriptor_, offset, whence);
    if (position >= 0) position_ = static_cast<uint64_t>(position);
    return position;
}

void OutputFile::commit() {
    if (!is_temporary()) {
        close();
        return;
    }
    if (::fsync(descriptor_) != 0) fail("cannot write");
    close();
    take_final_name();
    sync_directory(final_path_);
}

void OutputFile::close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0) fail("cannot write");
}

void OutputFile::take_final_name() {
    const auto hold = hold_interruptions();
    const int result = existing_ == Existing::replace ? ::rename(temporary_path_.c_str(), final_path_.c_str())
                                                      : rename_to_new(temporary_path_, final_path_);
    if (result != 0) fail(existing_ == Existing::replace ? "cannot replace" : "cannot create");
    keep_on_interruption(temporary_path_);
    temporary_path_.clear();
}

void OutputFile::fail(const char *action) const {
    if (errno == EEXIST) throw ProgramError(ExitCode::output, name(), "exists already (-f replaces it)");
    throw ProgramError(ExitCode::output, name(), std::string(action) + ": " + std::generic_category().message(errno));
}

}  // namespace tavik
