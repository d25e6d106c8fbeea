// The messages of FFmpeg's libraries, which are the best account of what is wrong with an input.
#pragma once

#include <string>

namespace tavik {

// What FFmpeg's libraries had to say in some period.
struct FfmpegLog {
    std::string first_error;  // empty when there was none
};

// From now on FFmpeg's libraries print nothing; their messages are kept for take_ffmpeg_log().
void capture_ffmpeg_log();

// Messages of the calling thread since its previous call.
FfmpegLog take_ffmpeg_log();

}  // namespace tavik
