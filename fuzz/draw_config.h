// Any valid configuration.
#pragma once

#include "input_bytes.h"
#include "tavik.h"

namespace tavik_fuzz {

EncoderConfig draw_valid_config(InputBytes &input);

}  // namespace tavik_fuzz
