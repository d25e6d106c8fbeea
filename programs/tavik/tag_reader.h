// The tags of the source, as TagLib or libavformat reads them.
#pragma once

#include "audio_decoder.h"
#include "tags.h"

namespace tavik {

// Everything but pictures, as the file has it; of what has no file, or is of a format that TagLib does not know, what
// libavformat has found. May throw whatever a library throws at a broken file.
void read_source_tags(const AudioDecoder &source, Tags &tags);

}  // namespace tavik
