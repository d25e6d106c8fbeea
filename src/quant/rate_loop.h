// Rate loop: fits one channel of one frame into its bit budget.
#pragma once

#include "quant/bit_counter.h"

namespace tavik {

// Moves the channel's common_sf in `block`, from its present value, until the count is within bits_tolerance of
// bits_target and not above it; leaves the codebooks and quantized values of that count. Where no gain meets the
// target, the search ends with every value quantized to zero. The caller clears the codebooks; those of uncoded bands
// stay. Returns the global gain, 100 ... 255. A silent channel gets common_sf 0 and global gain 100.
u32 run_rate_loop(CodingBlock &block, const ChannelData &data, u32 channel);

}  // namespace tavik
