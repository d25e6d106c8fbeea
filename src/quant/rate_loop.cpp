// A search over common_sf alone: the offsets of the bands are fixed.
#include "quant/rate_loop.h"

#include <algorithm>
#include <cstring>

#include "quant/power34.h"
#include "quant/rate_search.h"

namespace tavik {
namespace {

// A count may stop at this limit: any larger count moves the search upward likewise. With a target below 0 there is no
// limit: the first step then depends on the exact count.
u32 bit_limit(RateTarget target) {
    return target.bits >= 0 ? static_cast<u32>(target.bits) + static_cast<u32>(std::max(target.tolerance, 1))
                            : no_bit_limit;
}

// Remembers the counts of one search, which returns to values that it left a step or two before, and may go on where
// all bands are zero.
class Trials {
 public:
    Trials(const RateBands &bands, const ChannelData &data, SectionLengthField section_length, u32 bit_limit)
        : bands_(bands), data_(data), section_length_(section_length), bit_limit_(bit_limit) {}

    u32 count(u32 common_sf) {
        if (common_sf >= all_zero_common_sf_) return all_zero_bits_;
        Count &count = remembered_[common_sf % remembered_.size()];
        if (count.common_sf != common_sf) {
            count = {common_sf, count_bits(bands_, data_, {common_sf, section_length_, bit_limit_})};
            latest_ = common_sf;
            const bool is_complete = count.bits < bit_limit_ && count.bits != overflow_bits;
            if (is_complete && count.bits <= max_all_zero_bits && is_all_zero()) {
                all_zero_common_sf_ = common_sf;
                all_zero_bits_ = count.bits;
            }
        }
        return count.bits;
    }

    // Leaves the codebooks and values of the search's result. If it was counted last, they are there already: a count
    // within the target is complete; above the target every band is zero, and as no trial got beyond the bands of this
    // one, the codebooks after them are 0, as the caller left them.
    void quantize_at(u32 common_sf) {
        if (common_sf != latest_) count_bits(bands_, data_, {common_sf, section_length_, no_bit_limit});
        for (const RateBand &band : bands_) {
            if (data_.codebooks[band.entry] != 0) continue;
            std::memset(&data_.quantized[band.begin()], 0, band.width() * sizeof data_.quantized[0]);
        }
    }

 private:
    static constexpr u32 not_tried = 0xFFFFFFFF;
    struct Count {
        u32 common_sf = not_tried;
        u32 bits = 0;
    };
    static constexpr u32 max_all_zero_bits = 39;  // three short groups of one section of 15 bands

    bool is_all_zero() const {
        u32 codebooks = 0;
        for (const RateBand &band : bands_) codebooks |= data_.codebooks[band.entry];
        return codebooks == 0;
    }

    const RateBands &bands_;
    const ChannelData &data_;
    SectionLengthField section_length_;
    u32 bit_limit_;
    std::array<Count, 8> remembered_{};
    u32 latest_ = not_tried;
    u32 all_zero_common_sf_ = not_tried;  // from here on every count is all_zero_bits_, and every codebook 0
    u32 all_zero_bits_ = 0;
};

u32 quantize_to_zero(CodingBlock &block, const ChannelData &data, u32 channel) {
    std::memset(data.codebooks.data(), 0, data.codebooks.size_bytes());
    std::memset(data.quantized.data(), 0, data.quantized.size_bytes());
    block.common_sf[channel] = 0;
    return scale_factor_base;
}

}  // namespace

u32 run_rate_loop(CodingBlock &block, const ChannelData &data, u32 channel) {
    if (block.has_signal[channel] != 1) return quantize_to_zero(block, data, channel);

    const RateBands bands = gather_rate_bands(block, data.pow34, data.band_peaks, data.band_sf_offset, channel);
    const RateTarget target{block.bits_target[channel], block.bits_tolerance[channel]};
    Trials trials(bands, data, section_length_field(block.num_window_groups[channel] == 1), bit_limit(target));
    RateSearch search(block.common_sf[channel], bands.all_zero_common_sf, target,
                      [&](u32 common_sf) { return trials.count(common_sf); });
    const u32 common_sf = search.run();
    trials.quantize_at(common_sf);
    block.common_sf[channel] = common_sf;
    return data.band_sf_offset[0] + scale_factor_base + common_sf;
}

}  // namespace tavik
