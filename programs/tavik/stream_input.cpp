// What is read of a header is kept, so that it can still go to libavformat when it is none that is known here.
#include "stream_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "file_names.h"
#include "program_error.h"
#include "waiting.h"

namespace tavik {
namespace {

constexpr int buffer_bytes = 4096;

// -1 in what is no regular file.
int64_t position_of(int descriptor) {
    struct stat status {};
    const bool is_file = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return is_file ? ::lseek(descriptor, 0, SEEK_CUR) : -1;
}

}  // namespace

bool StreamInput::suits(const std::string &path) {
    struct stat status {};
    return path == standard_stream || (::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode));
}

StreamInput::StreamInput(const std::string &path, bool may_be_wav)
    : descriptor_(path == standard_stream ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0) {
        throw ProgramError(ExitCode::input, input_name(path), "cannot open: " + std::generic_category().message(errno));
    }
    start_ = position_of(descriptor_);
    if (may_be_wav) {
        std::vector<uint8_t> head;
        const auto more = [this](std::vector<uint8_t> &bytes, size_t count) { return read_more(bytes, count); };
        wav_header_ = read_wav_header(head, more);
        if (is_seekable()) {
            ::lseek(descriptor_, start_, SEEK_SET);
        } else if (wav_header_) {
            bytes_to_come_ = wav_header_->data_bytes;
        } else {
            head_ = std::move(head);
        }
    }
    auto *buffer = static_cast<uint8_t *>(av_malloc(buffer_bytes));
    if (buffer == nullptr) throw std::bad_alloc();
    io_ = own(avio_alloc_context(buffer, buffer_bytes, 0, this, read_callback, nullptr,
                                 is_seekable() ? seek_callback : nullptr));
}

StreamInput::~StreamInput() { ::close(descriptor_); }

bool StreamInput::read_more(std::vector<uint8_t> &bytes, size_t count) {
    const size_t wanted = bytes.size() + count;
    while (bytes.size() < wanted) {
        const size_t present = bytes.size();
        bytes.resize(wanted);
        const int result = read(bytes.data() + present, wanted - present);
        bytes.resize(present + static_cast<size_t>(std::max(result, 0)));
        if (result <= 0) return false;
    }
    return true;
}

int StreamInput::read(uint8_t *bytes, size_t room) {
    if (head_given_ < head_.size()) {
        const size_t count = std::min(room, head_.size() - head_given_);
        std::copy_n(head_.data() + head_given_, count, bytes);
        head_given_ += count;
        return static_cast<int>(count);
    }
    if (bytes_to_come_) room = std::min<uint64_t>(room, *bytes_to_come_);
    ssize_t result = 0;
    do {
        result = ::read(descriptor_, bytes, room);
    } while (result < 0 && can_go_on(descriptor_, POLLIN));
    if (bytes_to_come_ && result > 0) *bytes_to_come_ -= static_cast<uint64_t>(result);
    return result < 0 ? AVERROR(errno) : static_cast<int>(result);
}

int64_t StreamInput::seek(int64_t offset, int whence) const {
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
