// Plain POSIX calls: they tell exactly what failed.
#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>

#include "interruption.h"
#include "program_error.h"

namespace tavik {
namespace {

constexpr unsigned new_file_permissions = 0666;  // less the umask
constexpr int max_links = 40;                    // in a chain of symbolic links, as the system allows
constexpr int max_name_attempts = 100;

std::optional<struct stat> status_of(const std::string &path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

// The name at the end of a chain of symbolic links, whether or not it exists.
std::filesystem::path resolve_links(std::filesystem::path path) {
    std::error_code error;
    for (int i = 0; i < max_links && std::filesystem::is_symlink(path, error); ++i) {
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path;
}

// A short name beside `path`, so that it fits wherever `path` does.
std::string temporary_name(const std::filesystem::path &path, int attempt) {
    const std::string name = ".tavik-" + std::to_string(::getpid()) + "-" + std::to_string(attempt) + ".tmp";
    return path.parent_path() / name;
}

}  // namespace

OutputFile::OutputFile(const std::string &path) : path_(path) {
    const std::optional<struct stat> existing = status_of(path);
    if (existing && !S_ISREG(existing->st_mode)) {
        open_directly();
        return;
    }
    final_path_ = resolve_links(path);
    if (existing && ::faccessat(AT_FDCWD, final_path_.c_str(), W_OK, AT_EACCESS) != 0) fail("cannot replace");
    create_temporary(existing ? existing->st_mode & 0777 : new_file_permissions);
    if (existing) ::fchmod(descriptor_, existing->st_mode & 0777);  // what the umask took; where that is possible
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (temporary_path_.empty()) return;
    const InterruptionBlock block;
    ::unlink(temporary_path_.c_str());
    remove_on_interruption(nullptr);
}

void OutputFile::open_directly() {
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor_ < 0) fail("cannot open");
}

void OutputFile::create_temporary(unsigned permissions) {
    const InterruptionBlock block;
    for (int attempt = 0; attempt < max_name_attempts; ++attempt) {
        std::string name = temporary_name(final_path_, attempt);
        descriptor_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
        if (descriptor_ >= 0) {
            temporary_path_ = std::move(name);
            remove_on_interruption(temporary_path_.c_str());
            return;
        }
        if (errno != EEXIST) break;
    }
    fail("cannot create");
}

void OutputFile::write(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail("cannot write");
        bytes = bytes.subspan(static_cast<size_t>(written));
    }
}

void OutputFile::commit() {
    if (temporary_path_.empty()) {
        close();
        return;
    }
    if (::fsync(descriptor_) != 0) fail("cannot write");
    close();
    const InterruptionBlock block;
    if (::rename(temporary_path_.c_str(), final_path_.c_str()) != 0) fail("cannot replace");
    remove_on_interruption(nullptr);
    temporary_path_.clear();
}

void OutputFile::close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0) fail("cannot write");
}

void OutputFile::fail(const char *action) const {
    throw ProgramError(ExitCode::output, path_, std::string(action) + ": " + std::generic_category().message(errno));
}

void refuse_same_file(const std::string &input, const std::string &output) {
    const std::optional<struct stat> in = status_of(input);
    const std::optional<struct stat> out = status_of(output);
    if (in && out && in->st_dev == out->st_dev && in->st_ino == out->st_ino) {
        throw ProgramError(ExitCode::output, output, "is the input file");
    }
}

}  // namespace tavik
