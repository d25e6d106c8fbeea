// One loop over one value per channel; the band offsets are fixed.
#include "quant/rate_loop.h"

#include <algorithm>
#include <cstring>

#include "quant/power34.h"
#include "quant/rate_search.h"

namespace tavik {
namespace {

// From so many bits on the search only goes upward, however many there are. A target below 0 sets no such mark: there
// the first step depends on the very count.
u32 bits_that_are_enough(RateTarget target) {
    return target.bits >= 0 ? static_cast<u32>(target.bits) + static_cast<u32>(std::max(target.tolerance, 1))
                            : count_all;
}

// The counts of one search. It comes back to a value that it has left by one or two steps, and walks on through
// silence: counts are remembered.
class Trials {
 public:
    Trials(const RateBands &bands, const ChannelData &data, SectionLengthField section_length, u32 enough)
        : bands_(bands), data_(data), section_length_(section_length), enough_(enough) {}

    u32 count(u32 common_sf) {
        if (common_sf >= silent_sf_) return silent_bits_;
        Count &count = remembered_[common_sf % remembered_.size()];
        if (count.common_sf != common_sf) {
            count = {common_sf, count_bits(bands_, data_, {common_sf, section_length_, enough_})};
            latest_ = common_sf;
            const bool is_complete = count.bits < enough_ && count.bits != overflow_bits;
            if (is_complete && count.bits <= most_bits_of_silence && is_silent()) {
                silent_sf_ = common_sf;
                silent_bits_ = count.bits;
            }
        }
        return count.bits;
    }

    // Leaves codebooks and values of the common_sf that the search ends with. If that is the latest one counted, they
    // are there: a count within the target is complete; above it every band is silent, no trial came further than this
    // one, and the codebooks behind are 0 as the caller left them.
    void settle(u32 common_sf) {
        if (common_sf != latest_) count_bits(bands_, data_, {common_sf, section_length_, count_all});
        for (const RateBand &band : bands_) {
            if (data_.codebooks[band.entry] != 0) continue;
            std::memset(&data_.quantized[band.begin()], 0, band.width() * sizeof data_.quantized[0]);
        }
    }

 private:
    static constexpr u32 never_tried = 0xFFFFFFFF;
    struct Count {
        u32 common_sf = never_tried;
        u32 bits = 0;
    };
    static constexpr u32 most_bits_of_silence = 39;  // three short groups of one section of 15 bands

    bool is_silent() const {
        u32 codebooks = 0;
        for (const RateBand &band : bands_) codebooks |= data_.codebooks[band.entry];
        return codebooks == 0;
    }

    const RateBands &bands_;
    const ChannelData &data_;
    SectionLengthField section_length_;
    u32 enough_;
    std::array<Count, 8> remembered_{};
    u32 latest_ = never_tried;
    u32 silent_sf_ = never_tried;  // from here on every count is silent_bits_, and every codebook 0
    u32 silent_bits_ = 0;
};

u32 silence(CodingBlock &block, const ChannelData &data, u32 channel) {
    std::memset(data.codebooks.data(), 0, data.codebooks.size_bytes());
    std::memset(data.quantized.data(), 0, data.quantized.size_bytes());
    block.common_sf[channel] = 0;
    return scale_factor_base;
}

}  // namespace

u32 run_rate_loop(CodingBlock &block, const ChannelData &data, u32 channel) {
    if (block.has_signal[channel] != 1) return silence(block, data, channel);

    const RateBands bands = gather_rate_bands(block, data.pow34, data.band_peaks, data.band_sf_offset, channel);
    const RateTarget target{block.bits_target[channel], block.bits_tolerance[channel]};
    Trials trials(bands, data, section_length_field(block.num_window_groups[channel] == 1),
                  bits_that_are_enough(target));
    RateSearch search(block.common_sf[channel], bands.all_zero_common_sf, target,
                      [&](u32 common_sf) { return trials.count(common_sf); });
    const u32 common_sf = search.run();
    trials.settle(common_sf);
    block.common_sf[channel] = common_sf;
    return data.band_sf_offset[0] + scale_factor_base + common_sf;
}

}  // namespace tavik
