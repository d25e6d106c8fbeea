// The one thing that tells a complete Ogg file from one that was cut off.
#pragma once

#include <string>

namespace tavik {

// The last page of an Ogg file is not complete, or does not say that it is the last of its stream (RFC 3533). False for
// a file that cannot be read.
bool lacks_ogg_end(const std::string &path);

}  // namespace tavik
