// A band prefers mid/side where the magnitude sum of the difference signal is small against that of both channels. The
// share of such bands then decides for the frame: all bands, none, or band by band.
#include "tools/ms_stereo.h"

#include <algorithm>

#include "tools/mid_side.h"

namespace tavik {
namespace {

struct MsThresholds {
    u8 side_factor;  // mid/side if side_factor x side <= 10 x (left + right)
    u8 low_share;    // per cent of bands: below it no band is coded as mid/side
    u8 high_share;   // above it every band is
};

constexpr MsThresholds ms_thresholds[] = {
    {12, 30, 55},  // 32 kHz and above
    {19, 27, 52},  // 16 to 24 kHz
    {19, 25, 50},  // below
};

const MsThresholds &thresholds_of(u32 sampling_rate_index) {
    return ms_thresholds[(sampling_rate_index > 5 ? 1 : 0) + (sampling_rate_index > 8 ? 1 : 0)];
}

// Sums of magnitudes over all bands, of left and right and of side. A left/right band adds the mean of both to each.
struct BandStatistics {
    u32 ms_band_count = 0;
    u32 lr_total = 0;
    u32 side_total = 0;
};

BandStatistics measure_bands(ConstSpectrum left, ConstSpectrum right, std::span<const u32> offsets, i32 side_factor,
                             std::span<u32> ms_used) {
    std::array<BandSums, max_bands> sums_of_band;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled next
    band_sums(left, right, offsets.data(), std::span(sums_of_band).first(ms_used.size()));
    BandStatistics statistics;
    for (u32 b = 0; b < ms_used.size(); ++b) {
        const BandSums sums = sums_of_band[b];
        const bool mid_side = wrap_mul(side_factor, sums.side) <= wrap_mul(10, sums.both);
        ms_used[b] = mid_side ? 1 : 0;
        if (mid_side) {
            ++statistics.ms_band_count;
            statistics.lr_total += static_cast<u32>(sums.both);
            statistics.side_total += static_cast<u32>(sums.side);
        } else {
            const auto mean = static_cast<u32>(wrap_add(sums.both, sums.side) >> 1);
            statistics.lr_total += mean;
            statistics.side_total += mean;
        }
    }
    return statistics;
}

// Between the two shares each band has its own choice, unless the first band prefers left/right.
MsMask decide_mask(const BandStatistics &statistics, const MsThresholds &thresholds, std::span<const u32> ms_used) {
    const auto bands = static_cast<u32>(ms_used.size());
    if (bands == 0 || 100 * statistics.ms_band_count > thresholds.high_share * bands) return MsMask::all;
    if (100 * statistics.ms_band_count < thresholds.low_share * bands || ms_used[0] == 0) return MsMask::none;
    return MsMask::per_band;
}

// Transforms the bands that the mask selects, a run of neighbours at a time.
void transform_bands(Spectrum left, Spectrum right, std::span<const u32> offsets, MsMask mask,
                     std::span<const u32> ms_used) {
    for (u32 b = 0; b < ms_used.size(); ++b) {
        const u32 first = b;
        while (b < ms_used.size() && (mask == MsMask::all || ms_used[b] != 0)) ++b;
        const u32 lines = offsets[b] - offsets[first];
        to_mid_side(left.subspan(offsets[first], lines), right.subspan(offsets[first], lines));
    }
}

// Per cent of its target that the side channel keeps; mid and side together keep 200. The side of a band never exceeds
// the sum of left and right, so that its share is at most 100.
u32 side_share(MsMask mask, const BandStatistics &statistics, bool tns_data_present) {
    const u32 total = statistics.side_total + statistics.lr_total;
    const u32 q = total == 0 ? 0 : 200 * statistics.side_total / total;
    if (mask == MsMask::per_band) return std::max(q, 90u);
    if (statistics.side_total == 0) return 10;
    return std::max(tns_data_present && q < 35 ? q + 4 : q, 14u);
}

i32 percent_of(u32 percent, i32 bits) { return wrap_mul(static_cast<i32>(percent), bits) / 100; }

}  // namespace

MsMask ms_stereo(Spectrum left, Spectrum right, u32 sampling_rate_index, std::span<u32, max_bands> ms_used,
                 std::span<i32, max_channels> bits_target, u32 max_sfb, bool tns_data_present) {
    const std::span<u32> flags = ms_used.first(max_sfb);
    const MsThresholds &thresholds = thresholds_of(sampling_rate_index);
    const std::span<const u32> offsets = TAVIK_SwbOffsetLong[sampling_rate_index];
    const BandStatistics statistics = measure_bands(left, right, offsets, thresholds.side_factor, flags);
    const MsMask mask = decide_mask(statistics, thresholds, flags);
    if (mask == MsMask::none) return mask;

    transform_bands(left, right, offsets, mask, flags);
    const u32 side = side_share(mask, statistics, tns_data_present);
    bits_target[0] = percent_of(200 - side, bits_target[0]);
    bits_target[1] = percent_of(side, bits_target[1]);
    return mask;
}

}  // namespace tavik
