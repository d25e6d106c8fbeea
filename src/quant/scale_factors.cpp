// A band starts from an offset of about log2 of its largest 3/4 power; rules by sampling rate, band and window then
// make it finer. The rules are tuning constants of the encoder.
#include "quant/scale_factors.h"

#include <algorithm>
#include <bit>

#include "quant/coded_bands.h"
#include "quant/power34.h"

namespace tavik {
namespace {

// ceil(log2 peak) + 2, at most 18. A non-zero 3/4 power is at least 4, so that is 4 ... 18.
i32 starting_offset(u32 peak) { return std::min(static_cast<i32>(std::bit_width(peak - 1)) + 2, 18); }

// An eight-short band, by sampling rate and the number of windows in its group: short groups are coded more finely.
i32 short_offset(u32 sampling_rate_index, u32 group_length, i32 s) {
    switch (sampling_rate_index) {
        case 3:
        case 4: return s - (group_length == 1 ? 3 : group_length == 2 ? 2 : 1);
        case 5: return group_length == 1 ? s - 2 : s;
        case 6: return group_length == 1 ? s - 3 : s;
        case 7:
        case 8:
        case 9:
        case 10: return group_length == 1 ? s - 1 : s;
        default: return s;
    }
}

// The high bands of 44.1 and 48 kHz.
i32 high_band_offset(i32 t) {
    if (t >= 15) return t;
    return t >= 11 ? t - 1 : t - 2;
}

// 48 and 44.1 kHz differ in where the high bands begin.
i32 offset_48_44(u32 first_high_band, bool transition, u32 band, i32 s) {
    const i32 t = transition ? s - 2 : s - 1;
    if (band <= 4) return t;
    if (band < first_high_band) return t >= 10 ? t : t - 1;
    return high_band_offset(t);
}

i32 offset_32(bool transition, u32 band, i32 s) {
    const i32 t = transition ? s - 1 : s;
    if (band <= 1) return t;
    if (band <= 19) return t - 2;
    if (band <= 38) return t - 1;
    return t >= 4 ? t - 1 : t;
}

i32 offset_24(u32 band, i32 s) {
    if (band <= 8) return s <= 7 ? s - 2 : s - 1;
    if (band <= 14) return s <= 12 ? s - 2 : s;
    if (band <= 24) return s <= 14 ? s - 2 : s;
    if (band <= 35) return s <= 14 ? s - 1 : s;
    if (band <= 41) return s <= 12 ? s - 1 : s;
    if (band <= 44) return s <= 10 ? s - 1 : s;
    return s <= 9 ? s - 1 : s;
}

i32 offset_22(u32 band, i32 s) {
    if (band <= 8) return s >= 8 ? s - 1 : s - 2;
    if (band <= 25) return s - 2;
    return band <= 34 ? s - 1 : s;
}

i32 offset_16(u32 band, i32 s) {
    if (band <= 6) return s >= 8 ? s - 1 : s - 2;
    if (band <= 12) return s >= 7 ? s - 1 : s - 2;
    if (band <= 33) return s >= 6 ? s - 1 : s - 2;
    return s;
}

i32 offset_12(u32 band, i32 s) {
    if (band <= 8) return s >= 8 ? s - 1 : s - 2;
    if (band <= 27) return s >= 6 ? s - 1 : s - 2;
    return s;
}

// A long-window band. `transition`: LONG_START or LONG_STOP.
i32 long_offset(u32 sampling_rate_index, bool transition, u32 band, i32 s) {
    switch (sampling_rate_index) {
        case 3: return offset_48_44(16, transition, band, s);
        case 4: return offset_48_44(17, transition, band, s);
        case 5: return offset_32(transition, band, s);
        case 6: return offset_24(band, s);
        case 7: return offset_22(band, s);
        case 8: return offset_16(band, s);
        case 9: return offset_12(band, s);
        case 10: return band <= 29 ? s - 1 : s;
        default: return s;
    }
}

u32 band_offset(const CodingBlock &block, u32 channel, const Band &band, u32 peak) {
    if (peak == 0) return 0;
    const i32 s = starting_offset(peak);
    const WindowSequence sequence = block.window_sequence[channel];
    const i32 adjusted =
        sequence == WindowSequence::eight_short
            ? short_offset(block.sampling_rate_index, block.window_group_length[channel][band.group], s)
            : long_offset(block.sampling_rate_index, sequence != WindowSequence::only_long, band.number, s);
    return static_cast<u32>(std::max(adjusted, 0));
}

}  // namespace

void estimate_scale_factors(CodingBlock &block, Pow34 pow34_out, ConstSpectrum spectrum, BandArray band_sf_offset,
                            u32 channel) {
    u32 group_begin = 0;
    for (u32 g = 0; g < block.num_window_groups[channel]; ++g) {
        const u32 lines = block.sfb_offset[channel][g * short_offset_row + block.max_sfb[channel]];
        kernels::raise_to_three_quarters(spectrum.subspan(group_begin, lines), &pow34_out[group_begin]);
        group_begin += block.window_group_length[channel][g] * short_length;
    }
    block.has_signal[channel] = 0;
    for (const Band band : coded_bands(block, channel)) {
        const u32 peak = kernels::largest(pow34_out.subspan(band.begin, band.width));
        if (peak != 0) block.has_signal[channel] = 1;
        band_sf_offset[band.entry()] = band_offset(block, channel, band, peak);
    }
}

}  // namespace tavik
