// The coded scale-factor bands of a channel, in coding order: group by group, band by band.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

struct Band {
    u32 group;
    u32 number;  // within its group
    u32 begin;   // first coefficient
    u32 width;   // a multiple of 4; for eight-short blocks all windows of the group, interleaved

    u32 entry() const { return max_bands * group + number; }  // in band arrays
};

// Calls visit(band) for each band. `offsets`: rows of short_offset_row, one per group.
template <typename Visitor>
inline void for_each_coded_band(const CodingBlock &block, u32 channel, const u32 *offsets, Visitor visit) {
    const u32 groups = block.num_window_groups[channel];
    const u32 max_sfb = block.max_sfb[channel];
    u32 group_begin = 0;
    for (u32 g = 0; g < groups; ++g, offsets += short_offset_row) {
        for (u32 b = 0; b < max_sfb; ++b) visit(Band{g, b, group_begin + offsets[b], offsets[b + 1] - offsets[b]});
        group_begin += short_length * block.window_group_length[channel][g];
    }
}

}  // namespace tavik
