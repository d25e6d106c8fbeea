// Attacks are found in the time domain, from the peaks of sub-blocks of 128 samples, at three resolutions: half frames
// (groups of four sub-blocks), pairs of sub-blocks, single sub-blocks. The first that finds one ends the search.
#include "filterbank/block_switching.h"

#include <algorithm>

namespace tavik {
namespace {

// How loud the neighbours of an attack may be, in 1/128 of it.
struct Ratios {
    u8 rise;  // limit of the left one
    u8 fall;  // limit of the right one
};

// No limit: at low rates an attack need not be followed by a fall.
constexpr u8 any = 0;

struct Thresholds {
    u8 group;  // limit of the quieter half frame, in 1/128 of the louder one
    Ratios pair;
    Ratios subblock;
};

constexpr std::array<Thresholds, 12> block_switch_thresholds = {{
    {29, {21, 76}, {15, 64}},    // 96000 Hz
    {29, {21, 76}, {15, 64}},    // 88200
    {29, {21, 76}, {15, 64}},    // 64000
    {29, {21, 76}, {15, 64}},    // 48000
    {29, {21, 76}, {15, 64}},    // 44100
    {30, {23, 89}, {19, 70}},    // 32000
    {31, {25, 108}, {21, 76}},   // 24000
    {32, {28, 108}, {21, 76}},   // 22050
    {37, {30, any}, {25, any}},  // 16000
    {37, {31, any}, {25, any}},  // 12000
    {37, {32, any}, {28, any}},  // 11025
    {38, {37, any}, {30, any}},  // 8000
}};

// a / b < threshold / 128
bool is_below(i32 a, i32 threshold, i32 b) { return a < (i64{threshold} * b) >> 7; }

// Of `count` sub-blocks from `first` on, the one with the largest peak; of equal ones, the earliest.
u32 loudest(std::span<const i32, 2 * subblocks> peaks, u32 first, u32 count) {
    u32 best = first;
    for (u32 i = first + 1; i < first + count; ++i) {
        if (peaks[i] > peaks[best]) best = i;
    }
    return best;
}

// The largest peak of sub-blocks 2 j and 2 j + 1.
i32 pair_peak(std::span<const i32, 2 * subblocks> peaks, u32 j) {
    const i32 earlier = peaks[2 * j];
    const i32 later = peaks[2 * j + 1];
    return std::max(earlier, later);
}

struct Neighbour {
    i32 left;
    i32 right;
};

// The strength of an attack: its rise or, where that has a limit too, its fall if larger; 0 if a neighbour is too loud.
i32 strength(i32 value, Neighbour neighbour, Ratios ratios) {
    if (!is_below(neighbour.left, ratios.rise, value)) return 0;
    const i32 rise = wrap_abs(wrap_sub(value, neighbour.left));
    if (ratios.fall == any) return rise;
    if (!is_below(neighbour.right, ratios.fall, value)) return 0;
    return std::max(rise, wrap_abs(wrap_sub(value, neighbour.right)));
}

// The index of the strongest attack, or 0 if there is none; of equal ones, the earliest. The first and the last peak
// serve as neighbours only.
u32 strongest(std::span<const i32> peaks, Ratios ratios) {
    u32 attack = 0;
    i32 best = 0;
    for (u32 i = 1; i < peaks.size() - 1; ++i) {
        const i32 s = strength(peaks[i], {peaks[i - 1], peaks[i + 1]}, ratios);
        if (s > best) {
            best = s;
            attack = i;
        }
    }
    return attack;
}

constexpr u32 no_attack = ~u32{0};  // -1, modulo 2^32

// The sub-block of an attack in the newer history half, or no_attack.
u32 find_attack(u32 sampling_rate_index, std::span<const i32, 2 * subblocks> peaks,
                const TavikAttackDetectorState &previous) {
    const Thresholds &thresholds = block_switch_thresholds[sampling_rate_index];

    const u32 earlier = loudest(peaks, 0, subblocks / 2);
    const u32 later = loudest(peaks, subblocks / 2, subblocks / 2);
    const i32 earlier_peak = peaks[earlier];
    const i32 later_peak = peaks[later];
    if (std::max(earlier_peak, later_peak) == 0) return no_attack;
    if (is_below(earlier_peak, thresholds.group, later_peak)) return later;
    if (is_below(later_peak, thresholds.group, earlier_peak)) return earlier;

    std::array<i32, subblocks / 2 + 2> pair{previous.last_pair_peak};
    for (u32 j = 0; j <= subblocks / 2; ++j) pair[j + 1] = pair_peak(peaks, j);
    const u32 attack = strongest(pair, thresholds.pair);
    if (attack != 0) return loudest(peaks, 2 * (attack - 1), 2);

    std::array<i32, subblocks + 2> single{previous.last_subblock_peak};
    copy_elements(peaks.data(), subblocks + 1, single.data() + 1);
    return strongest(single, thresholds.subblock) - 1;
}

}  // namespace

void measure_peaks(std::span<const i32, frame_length> block, std::span<i32, subblocks> peaks) {
    measure_peaks<native_lanes>(block, peaks);
}

WindowSequence decide_window(u32 sampling_rate_index, std::span<const i32, 2 * subblocks> peaks, u32 &short_run_active,
                             u32 &attack_index, TavikAttackDetectorState &previous) {
    const u32 attack = find_attack(sampling_rate_index, peaks, previous);
    previous.last_subblock_peak = peaks[subblocks - 1];
    previous.last_pair_peak = pair_peak(peaks, subblocks / 2 - 1);

    const bool in_short_run = short_run_active != 0;
    short_run_active = attack != no_attack ? 1 : 0;
    if (attack == no_attack) return in_short_run ? WindowSequence::long_stop : WindowSequence::only_long;
    attack_index = attack;
    return in_short_run ? WindowSequence::eight_short : WindowSequence::long_start;
}

}  // namespace tavik
