// Messages are kept per thread. Each file is read and written by a single thread: FFmpeg's libraries start no threads
// of their own unless asked to.
#include "ffmpeg_log.h"

extern "C" {
#include <libavutil/log.h>
}

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace tavik {
namespace {

// Global, because the callback cannot get an argument of our own.
thread_local FfmpegLog current_log;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

void keep_message(const std::string &message, int level) {
    if (level <= AV_LOG_ERROR && current_log.first_error.empty()) current_log.first_error = message;
}

void receive_message(void * /*context*/, int level, const char *format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    std::array<char, 256> text{};
    if (std::vsnprintf(text.data(), text.size(), format, arguments) < 0) return;
    std::string message = text.data();
    message.erase(message.find_last_not_of(".\n") + 1);
    keep_message(message, level);
}

}  // namespace

void capture_ffmpeg_log() { av_log_set_callback(receive_message); }

FfmpegLog take_ffmpeg_log() { return std::exchange(current_log, {}); }

}  // namespace tavik
