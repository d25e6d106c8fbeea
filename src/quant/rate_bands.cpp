#include "quant/rate_bands.h"

#include <algorithm>

#include "quant/power34.h"

namespace tavik {

RateBands gather_rate_bands(const CodingBlock &block, ConstPow34 pow34, const i32 *band_peaks,
                            ConstBandArray band_sf_offset, u32 channel) {
    RateBands gathered;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled band by band
    RateBand *entry = gathered.bands.data();
    constexpr u32 all_zero_without_offset = first_silencing_gain - scale_factor_base;
    u32 min_sf_offset = all_zero_without_offset;
    for_each_coded_band(block, channel, block.sfb_offset_start[channel], [&](const Band &band) {
        entry->peak = band_peaks != nullptr ? static_cast<u32>(*band_peaks++)
                                            : largest_value<native_lanes>(pow34.subspan(band.begin, band.width));
        entry->begin_4 = static_cast<u8>(band.begin / 4);
        entry->width_4 = band.width / 4 & 0x7F;
        entry->starts_group = band.number == 0 ? 1 : 0;
        entry->entry = static_cast<u8>(band.entry());
        entry->sf_offset = static_cast<u8>(band_sf_offset[band.entry()]);
        min_sf_offset = std::min(min_sf_offset, u32{entry->sf_offset});
        ++entry;
    });
    gathered.all_zero_common_sf = all_zero_without_offset - min_sf_offset;
    gathered.count = static_cast<u32>(entry - gathered.bands.data());
    return gathered;
}

}  // namespace tavik
