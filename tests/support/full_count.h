// The whole count of a channel at one common_sf.
#pragma once

#include "quant/bit_counter.h"

namespace tavik_test {

inline tavik::u32 full_count(const tavik::CodingBlock &block, tavik::u32 common_sf, const tavik::ChannelData &data,
                             tavik::u32 channel) {
    const tavik::RateBands bands = tavik::gather_rate_bands(block, data.pow34, nullptr, data.band_sf_offset, channel);
    const auto section_length = tavik::section_length_field(block.num_window_groups[channel] == 1);
    return tavik::count_bits(bands, data, {common_sf, section_length, tavik::no_bit_limit});
}

}  // namespace tavik_test
