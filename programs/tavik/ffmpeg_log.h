// Messages that FFmpeg's libraries log: they describe best what is wrong with an input.
#pragma once

#include <string>

namespace tavik {

// Messages logged in some period.
struct FfmpegLog {
    std::string first_error;  // empty if there was none
};

// Keeps messages of FFmpeg's libraries for take_ffmpeg_log() from now on, instead of printing them.
void capture_ffmpeg_log();

// Returns the messages of the calling thread since its previous call.
FfmpegLog take_ffmpeg_log();

}  // namespace tavik
