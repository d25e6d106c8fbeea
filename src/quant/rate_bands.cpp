#include "quant/rate_bands.h"

#include "quant/power34.h"

namespace tavik {

RateBands::RateBands(const CodingBlock &block, ConstPow34 pow34, ConstBandArray band_sf_offset, u32 channel) {
    for (const Band band : CodedBands(block, channel, block.sfb_offset_start[channel])) {
        const u32 entry = band.entry();
        bands_[count_++] = {kernels::largest(pow34.subspan(band.begin, band.width)),
                            static_cast<u16>(band.begin),
                            static_cast<u16>(band.width),
                            static_cast<u8>(entry),
                            static_cast<u8>(band_sf_offset[entry]),
                            static_cast<u8>(band.number == 0)};
    }
}

}  // namespace tavik
