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

// How much lower, that is finer, the offset of a run of bands is than the starting offset s.
struct OffsetRule {
    u8 last_band;
    u8 reduction;
    u8 finer_below;   // below this s the reduction is one more
    u8 finest_below;  // below this, one more again
    u8 min_offset;    // of the result

    u32 operator()(i32 s) const {
        const i32 finer = s - reduction - (s < finer_below ? 1 : 0) - (s < finest_below ? 1 : 0);
        return static_cast<u32>(std::max<i32>(finer, min_offset));
    }
};

constexpr u8 all_bands = 255;

constexpr OffsetRule offset_rules[] = {
    // 0 to 3: the same for all bands
    {all_bands, 0, 0, 0, 0},
    {all_bands, 1, 0, 0, 0},
    {all_bands, 2, 0, 0, 0},
    {all_bands, 3, 0, 0, 0},
    // 4: 48000 Hz
    {4, 1, 0, 0, 0},
    {15, 1, 11, 0, 0},
    {all_bands, 1, 16, 12, 0},
    // 7: 44100 Hz
    {4, 1, 0, 0, 0},
    {16, 1, 11, 0, 0},
    {all_bands, 1, 16, 12, 0},
    // 10: 32000 Hz
    {1, 0, 0, 0, 0},
    {19, 2, 0, 0, 0},
    {38, 1, 0, 0, 0},
    {all_bands, 1, 0, 0, 3},
    // 14: 24000 Hz
    {8, 1, 8, 0, 0},
    {14, 0, 13, 13, 0},
    {24, 0, 15, 15, 0},
    {35, 0, 15, 0, 0},
    {41, 0, 13, 0, 0},
    {44, 0, 11, 0, 0},
    {all_bands, 0, 10, 0, 0},
    // 21: 22050 Hz
    {8, 1, 8, 0, 0},
    {25, 2, 0, 0, 0},
    {34, 1, 0, 0, 0},
    {all_bands, 0, 0, 0, 0},
    // 25: 16000 Hz
    {6, 1, 8, 0, 0},
    {12, 1, 7, 0, 0},
    {33, 1, 6, 0, 0},
    {all_bands, 0, 0, 0, 0},
    // 29: 12000 Hz
    {8, 1, 8, 0, 0},
    {27, 1, 6, 0, 0},
    {all_bands, 0, 0, 0, 0},
    // 32: 11025 Hz
    {29, 1, 0, 0, 0},
    {all_bands, 0, 0, 0, 0},
};

// Where the rules of a sampling rate begin: those of long windows, and those of eight-short groups of one, two, and
// more than two windows. Short groups are coded more finely.
struct FirstRules {
    u8 of_long;
    u8 of_short[3];
};

constexpr FirstRules first_rules[] = {
    {0, {0, 0, 0}},   // 96000 Hz
    {0, {0, 0, 0}},   // 88200
    {0, {0, 0, 0}},   // 64000
    {4, {3, 2, 1}},   // 48000
    {7, {3, 2, 1}},   // 44100
    {10, {2, 0, 0}},  // 32000
    {14, {3, 0, 0}},  // 24000
    {21, {1, 0, 0}},  // 22050
    {25, {1, 0, 0}},  // 16000
    {29, {1, 0, 0}},  // 12000
    {32, {1, 0, 0}},  // 11025
    {0, {0, 0, 0}},   // 8000
};

// last_band rises up to all_bands, then again from the next rule on; there the rules of some sampling rate begin.
consteval bool are_runs() {
    bool begins = true;
    for (std::size_t i = 0; i < std::size(offset_rules); ++i) {
        const auto begins_here = [i](const FirstRules &first) { return first.of_long == i; };
        if (!begins && offset_rules[i].last_band <= offset_rules[i - 1].last_band) return false;
        if (i > 3 && begins != std::ranges::any_of(first_rules, begins_here)) return false;
        begins = offset_rules[i].last_band == all_bands;
    }
    return begins;
}

static_assert(are_runs());

// The rule for band 0 of a window group.
const OffsetRule *first_rule(const CodingBlock &block, u32 channel, u32 group) {
    const FirstRules &first = first_rules[block.sampling_rate_index];
    if (block.window_sequence[channel] != WindowSequence::eight_short) return &offset_rules[first.of_long];
    return &offset_rules[first.of_short[std::min(block.window_group_length[channel][group], 3u) - 1]];
}

// At 32 to 48 kHz, LONG_START and LONG_STOP are coded more finely than other long windows.
bool is_fine_transition(const CodingBlock &block, u32 channel) {
    const WindowSequence sequence = block.window_sequence[channel];
    return (sequence == WindowSequence::long_start || sequence == WindowSequence::long_stop) &&
           block.sampling_rate_index >= 3 && block.sampling_rate_index <= 5;
}

}  // namespace

void estimate_scale_factors(CodingBlock &block, Pow34 pow34_out, ConstSpectrum spectrum, BandArray band_sf_offset,
                            std::span<i32, max_bands> band_peaks, u32 channel) {
    const i32 transition = is_fine_transition(block, channel) ? 1 : 0;
    const OffsetRule *rule = offset_rules;
    i32 *band_peak = band_peaks.data();
    u32 signal = 0;
    for_each_coded_band(block, channel, block.sfb_offset[channel].data(), [&](const Band &band) {
        if (band.number == 0) rule = first_rule(block, channel, band.group);
        if (band.number > rule->last_band) ++rule;
        const u32 peak =
            raise_to_three_quarters<native_lanes>(&spectrum[band.begin], band.width, &pow34_out[band.begin]);
        *band_peak++ = static_cast<i32>(peak);
        signal |= peak;
        band_sf_offset[band.entry()] = peak == 0 ? 0 : (*rule)(starting_offset(peak) - transition);
    });
    block.has_signal[channel] = signal != 0 ? 1 : 0;
}

}  // namespace tavik
