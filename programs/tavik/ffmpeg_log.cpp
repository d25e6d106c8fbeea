// The libraries may log from threads of their own, hence the lock.
#include "ffmpeg_log.h"

extern "C" {
#include <libavutil/log.h>
}

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace tavik {
namespace {

std::mutex log_mutex;
FfmpegLog current_log;

void keep_message(const std::string &message, int level) {
    const std::lock_guard lock(log_mutex);
    if (level <= AV_LOG_ERROR && current_log.first_error.empty()) current_log.first_error = message;
    if (message.starts_with("Ignoring maximum wav data size")) current_log.open_ended_file = true;
}

void receive_message(void *, int level, const char *format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    std::string message = text.data();
    message.erase(message.find_last_not_of(".\n") + 1);
    keep_message(message, level);
}

}  // namespace

void capture_ffmpeg_log() { av_log_set_callback(receive_message); }

FfmpegLog take_ffmpeg_log() {
    const std::lock_guard lock(log_mutex);
    return std::exchange(current_log, {});
}

}  // namespace tavik
