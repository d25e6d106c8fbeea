// Uses POSIX calls, because they report exactly what failed.
#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "interruption.h"
#include "program_error.h"
#include "retry.h"
#include "temporary_files.h"

namespace tavik {
namespace {

constexpr unsigned new_file_permissions = 0666;  // before the umask is applied
constexpr unsigned permission_bits = 0777;
constexpr int max_links = 40;  // in a chain of symbolic links, the limit of the system
constexpr int max_name_attempts = 100;

// Type and permissions of an existing file.
std::optional<mode_t> mode_of(const std::string &path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status.st_mode;
}

// The path at the end of a chain of symbolic links, whether or not it exists.
std::filesystem::path resolve_links(std::filesystem::path path) {
    std::error_code error;
    for (int i = 0; i < max_links && std::filesystem::is_symlink(path, error); ++i) {
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path;
}

std::string directory_of(const std::filesystem::path &path) {
    return path.has_parent_path() ? path.parent_path().string() : ".";
}

// A path of an open file that works even if the file has no name.
std::string descriptor_path(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

std::filesystem::path draft_path(std::filesystem::path path) {
    const std::filesystem::path extension = path.extension();
    path.replace_extension();
    return path += ".unfinished" + extension.string();
}

// renameat() that fails with EEXIST if the new name exists. If the file system cannot do this, it tests first.
int rename_to_new(int directory, const char *from, const char *to) {
    if (::renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    if (::faccessat(directory, to, F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return -1;
    }
    return ::renameat(directory, from, directory, to);
}

// Makes a new name survive a power failure. Errors are ignored: not every file system supports this.
void sync_directory(int directory) {
    const Descriptor readable(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (readable.get() >= 0) ::fsync(readable.get());
}

}  // namespace

void Descriptor::reset(int number) {
    if (number_ >= 0) ::close(number_);
    number_ = number;
}

bool OutputFile::is_direct(const std::string &path) {
    const std::optional<mode_t> mode = mode_of(path);
    return path == standard_stream || (mode && !S_ISREG(*mode));
}

OutputFile::OutputFile(const std::string &path, Existing existing, Draft draft)
    : path_(path), existing_(existing), draft_(draft) {
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
    // O_PATH, because the directory may not be readable and need not be.
    directory_.reset(::open(directory_of(final_path_).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (directory_.get() < 0) fail("cannot create");
    remove_abandoned_files(directory_.get());
    create(old.value_or(new_file_permissions) & permission_bits);
    if (old) ::fchmod(file_.get(), *old & permission_bits);  // undoes the umask; errors are ignored
}

OutputFile::~OutputFile() {
    if (draft_ == Draft::hidden) discard();
}

void OutputFile::open_directly() {
    file_.reset(path_ == standard_stream ? ::dup(STDOUT_FILENO) : ::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    if (file_.get() < 0) fail("cannot open");
}

void OutputFile::create(unsigned permissions) {
    if (draft_ == Draft::visible) {
        create_visible(permissions);
    } else if (!create_unnamed(permissions)) {
        create_temporary(permissions);
    }
}

// False if the system cannot create files without a name or could not give the file a name later.
bool OutputFile::create_unnamed(unsigned permissions) {
    file_.reset(::openat(directory_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, permissions));
    if (file_.get() < 0 || ::access(descriptor_path(file_.get()).c_str(), F_OK) != 0) return false;
    lock_file(file_.get());
    return true;
}

void OutputFile::create_temporary(unsigned permissions) {
    const auto lock = block_interruptions();
    for (int attempt = 0; attempt < max_name_attempts; ++attempt) {
        const std::string temporary = temporary_name();
        if (create_named(temporary, permissions)) {
            remove_on_interruption(directory_.get(), temporary);
            return;
        }
        if (errno != EEXIST) break;
    }
    fail("cannot create");
}

void OutputFile::create_visible(unsigned permissions) {
    if (!create_named(draft_path(final_path_.filename()), permissions)) {
        if (errno != EEXIST) fail("cannot create");
        throw ProgramError(ExitCode::output, draft_name(), "exists already, an earlier recording: rename or remove it");
    }
    sync_directory(directory_.get());
}

// False, with errno set, if the name cannot be used.
bool OutputFile::create_named(const std::string &name, unsigned permissions) {
    file_.reset(::openat(directory_.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    if (file_.get() < 0) return false;
    if (!lock_file(file_.get())) {
        errno = EEXIST;
        return false;
    }
    current_name_ = name;
    return true;
}

std::string OutputFile::written_path() const {
    std::string path = descriptor_path(file_.get());
    if (current_name_.empty() || ::access(path.c_str(), F_OK) == 0) return path;
    return final_path_.parent_path() / current_name_;
}

void OutputFile::write(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
        if (count < 0 && should_retry(file_.get(), POLLOUT)) continue;
        if (count < 0) fail("cannot write");
        bytes = bytes.subspan(static_cast<size_t>(count));
        written_ += static_cast<uint64_t>(count);
    }
}

int64_t OutputFile::seek(int64_t offset, int whence) { return ::lseek(file_.get(), offset, whence); }

int64_t OutputFile::read_at(uint64_t position, std::span<uint8_t> bytes) const {
    return ::pread(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(position));
}

int OutputFile::sync() const { return ::fdatasync(file_.get()) == 0 ? 0 : errno; }

uint64_t OutputFile::size() const {
    struct stat status {};
    return is_regular() && ::fstat(file_.get(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : written_;
}

// Some file systems report failed writes only when a file is closed. Therefore a second descriptor is closed here; the
// first one is still needed to give the file a name, and it holds the lock that protects the file.
void OutputFile::commit() {
    if (is_regular() && ::fsync(file_.get()) != 0) fail("cannot write");
    const int second = ::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0);
    if (second < 0 || ::close(second) != 0) fail("cannot write");
    if (is_regular()) give_final_name();
}

void OutputFile::give_final_name() {
    {
        const auto lock = block_interruptions();
        if (current_name_.empty()) {
            link_final_name();
        } else {
            rename_to_final_name();
        }
    }
    sync_directory(directory_.get());
}

bool OutputFile::link_as(const std::string &name) const {
    return ::linkat(AT_FDCWD, descriptor_path(file_.get()).c_str(), directory_.get(), name.c_str(),
                    AT_SYMLINK_FOLLOW) == 0;
}

// linkat() never replaces a file. To replace one, the file first gets a temporary name, which is then renamed.
void OutputFile::link_final_name() {
    if (link_as(final_path_.filename())) return;
    if (errno != EEXIST || existing_ == Existing::refuse) fail("cannot create");
    const std::string temporary = temporary_name();
    if (!link_as(temporary)) fail("cannot replace");
    current_name_ = temporary;
    remove_on_interruption(directory_.get(), temporary);
    rename_to_final_name();
}

void OutputFile::rename_to_final_name() {
    const int directory = directory_.get();
    const std::string final_name = final_path_.filename();
    const int result = existing_ == Existing::replace
                           ? ::renameat(directory, current_name_.c_str(), directory, final_name.c_str())
                           : rename_to_new(directory, current_name_.c_str(), final_name.c_str());
    if (result != 0) fail(existing_ == Existing::replace ? "cannot replace" : "cannot create");
    keep_on_interruption(directory, current_name_);
    current_name_.clear();
}

void OutputFile::discard() {
    if (current_name_.empty()) return;
    const auto lock = block_interruptions();
    ::unlinkat(directory_.get(), current_name_.c_str(), 0);
    keep_on_interruption(directory_.get(), current_name_);
    current_name_.clear();
}

std::string OutputFile::draft_name() const { return draft_path(final_path_); }

void OutputFile::fail(const char *action) const {
    if (errno == EEXIST) throw ProgramError(ExitCode::output, name(), "exists already (-f replaces it)");
    throw ProgramError(ExitCode::output, name(), std::string(action) + ": " + std::generic_category().message(errno));
}

}  // namespace tavik
