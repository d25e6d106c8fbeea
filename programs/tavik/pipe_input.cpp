// The header is kept as it is read, so that it can still go to libavformat when it is none that is known here.
#include "pipe_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "file_names.h"
#include "program_error.h"

namespace tavik {
namespace {

constexpr int buffer_bytes = 4096;
constexpr size_t longest_header = 65536;

// WAVE_FORMAT_PCM, WAVE_FORMAT_IEEE_FLOAT, and the one that names the format further behind.
constexpr uint32_t tag_pcm = 1;
constexpr uint32_t tag_float = 3;
constexpr uint32_t tag_extensible = 0xFFFE;

uint32_t little_endian(const uint8_t *bytes, size_t count) {
    uint32_t value = 0;
    for (size_t i = count; i-- > 0;) value = value << 8 | bytes[i];
    return value;
}

bool is(const uint8_t *bytes, std::string_view text) { return std::equal(text.begin(), text.end(), bytes); }

const char *sample_format(uint32_t tag, uint32_t bits) {
    if (tag == tag_float) return bits == 32 ? "f32le" : nullptr;
    if (tag != tag_pcm) return nullptr;
    switch (bits) {
        case 8: return "u8";
        case 16: return "s16le";
        case 24: return "s24le";
        case 32: return "s32le";
        default: return nullptr;
    }
}

}  // namespace

bool PipeInput::suits(const std::string &path) {
    struct stat status {};
    if (path == standard_stream) return ::fstat(STDIN_FILENO, &status) != 0 || !S_ISREG(status.st_mode);
    return ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

PipeInput::PipeInput(const std::string &path, bool may_be_wav)
    : descriptor_(path == standard_stream ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0) {
        throw ProgramError(ExitCode::input, input_name(path), "cannot open: " + std::generic_category().message(errno));
    }
    if (may_be_wav) read_wav_header();
    auto *buffer = static_cast<uint8_t *>(av_malloc(buffer_bytes));
    if (buffer == nullptr) throw std::bad_alloc();
    io_ = own(avio_alloc_context(buffer, buffer_bytes, 0, this, read_callback, nullptr, nullptr));
}

PipeInput::~PipeInput() { ::close(descriptor_); }

// Appends bytes to the head; false when there are not so many.
bool PipeInput::read_exactly(size_t count) {
    const size_t wanted = head_.size() + count;
    if (wanted > longest_header) return false;
    while (head_.size() < wanted) {
        const size_t present = head_.size();
        head_.resize(wanted);
        const int result = read(head_.data() + present, wanted - present);
        head_.resize(present + static_cast<size_t>(std::max(result, 0)));
        if (result <= 0) return false;
    }
    return true;
}

// Goes through the chunks up to the samples.
void PipeInput::read_wav_header() {
    head_given_ = longest_header;  // nothing of it goes out while it is read
    if (read_exactly(12) && is(head_.data(), "RIFF") && is(head_.data() + 8, "WAVE")) {
        while (read_exactly(8)) {
            const uint8_t *chunk = head_.data() + head_.size() - 8;
            const uint32_t size = little_endian(chunk + 4, 4);
            if (is(chunk, "data")) {
                start_data(size);
                break;
            }
            const bool is_format = is(chunk, "fmt ");
            if (!read_exactly(size + size % 2)) break;
            if (is_format) read_format_chunk(head_.data() + head_.size() - size - size % 2, size);
        }
    }
    head_given_ = 0;
}

void PipeInput::read_format_chunk(const uint8_t *chunk, size_t size) {
    constexpr size_t plain_bytes = 16;
    constexpr size_t extensible_bytes = 40;
    constexpr size_t sub_format_at = 24;
    if (size < plain_bytes) return;
    uint32_t tag = little_endian(chunk, 2);
    if (tag == tag_extensible && size >= extensible_bytes) tag = little_endian(chunk + sub_format_at, 2);
    const uint32_t bits = little_endian(chunk + 14, 2);
    const uint32_t channels = little_endian(chunk + 2, 2);
    const uint32_t rate = little_endian(chunk + 4, 4);
    const char *format = sample_format(tag, bits);
    const bool is_plain = little_endian(chunk + 12, 2) == channels * bits / 8;
    if (format == nullptr || !is_plain || !is_possible(rate, channels)) return;
    wav_format_ = {.sample_format = format, .rate = rate, .channels = channels};
    bytes_per_second_ = rate * channels * bits / 8;
}

// The header ends here, and stays here if it was understood.
void PipeInput::start_data(uint32_t bytes) {
    if (!wav_format_) return;
    head_.clear();
    if (bytes == 0 || bytes >= unknown_wav_bytes) return;
    bytes_to_come_ = bytes;
    wav_seconds_ = static_cast<double>(bytes) / bytes_per_second_;
}

int PipeInput::read(uint8_t *bytes, size_t room) {
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
    } while (result < 0 && errno == EINTR);
    if (bytes_to_come_ && result > 0) *bytes_to_come_ -= static_cast<uint64_t>(result);
    return result < 0 ? AVERROR(errno) : static_cast<int>(result);
}

int PipeInput::read_callback(void *input, uint8_t *bytes, int room) {
    const int result = static_cast<PipeInput *>(input)->read(bytes, static_cast<size_t>(room));
    return result == 0 ? AVERROR_EOF : result;
}

}  // namespace tavik
