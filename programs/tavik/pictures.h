// Pictures of the kinds that MP4 files hold: JPEG, PNG, BMP and GIF.
#pragma once

#include <taglib/mp4coverart.h>

#include <string>

#include "ffmpeg_handles.h"
#include "tags.h"

namespace tavik {

// Adds the pictures that libavformat has found in a file, front covers first or without them. Those of other kinds
// become PNG, which is noted as a change.
enum class FrontCover { keep, leave_out };
void read_pictures(const AVFormatContext &source, FrontCover front_cover, Tags &tags);

// The picture in a file of any kind that FFmpeg's libraries know. Throws ProgramError with ExitCode::usage if it is
// none.
TagLib::MP4::CoverArt read_picture_file(const std::string &path);

}  // namespace tavik
