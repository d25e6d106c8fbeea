// One loop over one value per channel; the band offsets are fixed.
#include "quant/rate_loop.h"

#include <algorithm>
#include <cstring>

#include "quant/coded_bands.h"
#include "quant/power34.h"
#include "quant/rate_search.h"

namespace tavik {
namespace {

// The smallest common_sf with which every coded band is quantized to zero.
u32 smallest_silent_sf(const CodingBlock &block, ConstBandArray band_sf_offset, u32 channel) {
    constexpr u32 without_offset = first_silencing_gain - scale_factor_base;
    u32 smallest_offset = without_offset;
    for (const Band band : coded_bands(block, channel)) {
        smallest_offset = std::min(smallest_offset, band_sf_offset[band.entry()]);
    }
    return without_offset - smallest_offset;
}

u32 silence(CodingBlock &block, const ChannelData &data, u32 channel) {
    std::memset(data.codebooks.data(), 0, data.codebooks.size_bytes());
    std::memset(data.quantized.data(), 0, data.quantized.size_bytes());
    block.common_sf[channel] = 0;
    return scale_factor_base;
}

}  // namespace

u32 run_rate_loop(CodingBlock &block, const ChannelData &data, u32 channel) {
    if (block.has_signal[channel] != 1) return silence(block, data, channel);

    RateSearch search(block.common_sf[channel], smallest_silent_sf(block, data.band_sf_offset, channel),
                      {block.bits_target[channel], block.bits_tolerance[channel]},
                      [&](u32 common_sf) { return count_bits(block, common_sf, data, channel); });
    block.common_sf[channel] = search.run();
    return data.band_sf_offset[0] + scale_factor_base + block.common_sf[channel];
}

}  // namespace tavik
