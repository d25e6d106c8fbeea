// Reads the tags of the source with TagLib or libavformat.
#pragma once

#include "audio_decoder.h"
#include "tags.h"

namespace tavik {

// Reads all tags, and pictures only as source_pictures. If the input is not a file, or has a format that TagLib does
// not know, the tags are those that libavformat has found. May throw any exception of the libraries for a broken file.
void read_source_tags(const AudioDecoder &source, Tags &tags);

}  // namespace tavik
