// One loop over one value: the band offsets are fixed, only the channel's common_sf moves. A larger common_sf quantizes
// more coarsely.
#include "quant/rate_loop.h"

#include <algorithm>
#include <cstring>

#include "quant/coded_bands.h"
#include "quant/power34.h"

namespace tavik {
namespace {

// One channel's search. Each count overwrites the codebooks and quantized values, so the latest one is what remains.
struct Search {
    const CodingBlock &block;
    const ChannelData &data;
    u32 channel;
    u32 common_sf;
    u32 smallest_offset;  // of the coded bands
    i32 bits = 0;         // of the latest count
    i32 excess = 0;       // bits - target

    void count() {
        bits = static_cast<i32>(count_bits(block, common_sf, data, channel));
        excess = wrap_sub(bits, block.bits_target[channel]);
    }

    bool within_tolerance() const { return wrap_abs(excess) < block.bits_tolerance[channel]; }

    // A coarser quantizer can change nothing any more: every coded band is quantized to zero.
    bool everything_is_zero() const {
        return u64{scale_factor_base} + common_sf + smallest_offset >= first_silencing_gain;
    }
};

u32 smallest_coded_offset(const CodingBlock &block, ConstBandArray band_sf_offset, u32 channel) {
    u32 smallest = std::numeric_limits<u32>::max();
    for (const Band band : coded_bands(block, channel)) smallest = std::min(smallest, band_sf_offset[band.entry()]);
    return smallest;
}

// 4, but larger when the first count is far off in proportion to itself.
u32 first_step(const Search &search) {
    const i64 distance = magnitude(search.excess);
    if (distance <= 8 * i64{search.bits}) return 4;
    return distance <= 16 * i64{search.bits} ? 8 : 16;
}

// Bisection: a count above the target moves common_sf up, any other down; each reversal (the first direction counts as
// up) halves the step. Ends within the tolerance, with the step used up, or where common_sf can move no further.
void bisect(Search &search) {
    u32 step = first_step(search);
    bool upward = true;
    while (!search.within_tolerance()) {
        const bool above_target = search.excess > 0;
        if (above_target != upward) {
            step /= 2;
            upward = above_target;
            if (step == 0) return;
        }
        if (upward) {
            if (search.everything_is_zero()) return;
            search.common_sf += step;
        } else {
            if (search.common_sf == 0) return;
            search.common_sf -= std::min(search.common_sf, step);
        }
        search.count();
    }
}

void walk_below_target(Search &search) {
    while (search.excess > 0 && !search.everything_is_zero()) {
        ++search.common_sf;
        search.count();
    }
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

    Search search{block, data, channel, block.common_sf[channel],
                  smallest_coded_offset(block, data.band_sf_offset, channel)};
    search.count();
    bisect(search);
    walk_below_target(search);
    block.common_sf[channel] = search.common_sf;
    return data.band_sf_offset[0] + scale_factor_base + search.common_sf;
}

}  // namespace tavik
