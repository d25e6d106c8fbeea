#include "quant/rate_bands.h"

#include "quant/power34.h"

namespace tavik {

RateBands gather_rate_bands(const CodingBlock &block, ConstPow34 pow34, const i32 *band_peaks,
                            ConstBandArray band_sf_offset, u32 channel) {
    RateBands gathered;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled band by band
    gathered.count = 0;
    for (const Band band : CodedBands(block, channel, block.sfb_offset_start[channel])) {
        RateBand &entry = gathered.bands[gathered.count++];
        entry.peak = band_peaks != nullptr ? static_cast<u32>(*band_peaks++)
                                           : largest_value<native_lanes>(pow34.subspan(band.begin, band.width));
        entry.begin_4 = static_cast<u8>(band.begin / 4);
        entry.width_4 = band.width / 4 & 0x7F;
        entry.starts_group = band.number == 0 ? 1 : 0;
        entry.entry = static_cast<u8>(band.entry());
        entry.sf_offset = static_cast<u8>(band_sf_offset[band.entry()]);
    }
    return gathered;
}

}  // namespace tavik
