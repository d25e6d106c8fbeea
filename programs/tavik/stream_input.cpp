#include "stream_input.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "file_names.h"
#include "interruption.h"
#include "program_error.h"
#include "retry.h"

namespace tavik {
namespace {

constexpr int buffer_bytes = 4096;
constexpr size_t head_bytes = 4096;

// Current position; -1 if it is not a regular file.
int64_t position_of(int descriptor) {
    struct stat status {};
    const bool is_file = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return is_file ? ::lseek(descriptor, 0, SEEK_CUR) : -1;
}

// open() of a FIFO blocks until another process opens it for writing. With --live it must not, since a signal has to be
// able to end the input then too; wait() waits instead.
int open_stream(const std::string &path) {
    if (path == standard_stream) return ::dup(STDIN_FILENO);
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | (end_of_input_event() >= 0 ? O_NONBLOCK : 0));
}

}  // namespace

bool StreamInput::is_stream(const std::string &path) {
    struct stat status {};
    if (path == standard_stream) return true;
    if (::stat(path.c_str(), &status) != 0) return false;
    return !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode) && !S_ISBLK(status.st_mode);
}

StreamInput::StreamInput(const std::string &path) : descriptor_(open_stream(path)) {
    if (descriptor_ < 0) {
        throw ProgramError(ExitCode::input, input_name(path), "cannot open: " + std::generic_category().message(errno));
    }
    start_ = position_of(descriptor_);
    auto *buffer = static_cast<uint8_t *>(av_malloc(buffer_bytes));
    if (buffer == nullptr) throw std::bad_alloc();
    io_ = own(avio_alloc_context(buffer, buffer_bytes, 0, this, read_callback, nullptr, seek_callback));
    if (!is_seekable()) io_->seekable = 0;
}

StreamInput::~StreamInput() { ::close(descriptor_); }

// Waits until there is something to read, and returns how many bytes may be read: at most `room`, and after a signal
// has ended the input only those that were in the pipe at that time.
size_t StreamInput::wait(size_t room) {
    const int end = end_of_input_event();
    if (end < 0) return room;
    std::array<pollfd, 2> events{{{.fd = end, .events = POLLIN, .revents = 0},  //
                                  {.fd = descriptor_, .events = POLLIN, .revents = 0}}};
    while (!bytes_left_ && ::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
    }
    if (!bytes_left_ && events[0].revents != 0) {
        int present = 0;
        bytes_left_ = ::ioctl(descriptor_, FIONREAD, &present) == 0 ? static_cast<size_t>(present) : 0;
    }
    const size_t count = std::min(room, bytes_left_.value_or(room));
    if (bytes_left_) *bytes_left_ -= count;
    return count;
}

int StreamInput::read(uint8_t *bytes, size_t room) {
    room = wait(room);
    if (room == 0) return 0;
    ssize_t result = 0;
    do {
        result = ::read(descriptor_, bytes, room);
    } while (result < 0 && should_retry(descriptor_, POLLIN));
    if (result < 0) return AVERROR(errno);
    const size_t kept = is_seekable() ? 0 : std::min(static_cast<size_t>(result), head_bytes - head_.size());
    head_.insert(head_.end(), bytes, bytes + kept);
    return static_cast<int>(result);
}

bool StreamInput::read_again(int64_t position, std::span<uint8_t> bytes) const {
    const auto end = position + std::ssize(bytes);
    if (position < 0 || end > std::ssize(head_)) return false;
    std::copy_n(head_.begin() + position, bytes.size(), bytes.begin());
    return true;
}

int64_t StreamInput::seek(int64_t offset, int whence) const {
    // In a pipe, AVSEEK_SIZE returns 0: unknown. After an error, libavformat would ignore the length in an MP3 header.
    if (!is_seekable()) return (whence & AVSEEK_SIZE) != 0 ? 0 : AVERROR(ESPIPE);
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) return AVERROR(errno);
    if ((whence & AVSEEK_SIZE) != 0) return status.st_size - start_;
    const int plain_whence = whence & ~AVSEEK_FORCE;
    const int64_t position = ::lseek(descriptor_, plain_whence == SEEK_SET ? start_ + offset : offset, plain_whence);
    return position < 0 ? AVERROR(errno) : position - start_;
}

int StreamInput::read_callback(void *input, uint8_t *bytes, int room) {
    const int result = static_cast<StreamInput *>(input)->read(bytes, static_cast<size_t>(room));
    return result == 0 ? AVERROR_EOF : result;
}

int64_t StreamInput::seek_callback(void *input, int64_t offset, int whence) {
    return static_cast<const StreamInput *>(input)->seek(offset, whence);
}

}  // namespace tavik
