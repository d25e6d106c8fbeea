// Pictures in the formats that MP4 files can store: JPEG, PNG, BMP and GIF.
#pragma once

#include <taglib/mp4coverart.h>

#include <string>

#include "ffmpeg_handles.h"
#include "tags.h"

namespace tavik {

// Adds the pictures of a file to `tags`, front covers first or left out. Pictures in other formats are converted to
// PNG, which is recorded as a change.
enum class FrontCover { keep, leave_out };
void read_pictures(const AVFormatContext &source, FrontCover front_cover, Tags &tags);

// Reads a picture in any format that FFmpeg's libraries support. Throws ProgramError with ExitCode::usage if the file
// is not a picture.
TagLib::MP4::CoverArt read_picture_file(const std::string &path);

}  // namespace tavik
