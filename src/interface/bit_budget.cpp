// All in bits per frame except the reservoir itself, which counts bytes.
#include "interface/bit_budget.h"

#include <algorithm>

namespace tavik {
namespace {

// Moves `percent` of the mean channel bits from the available bits to the target, or as many as there are.
void draw(CodingBlock &block, i32 &available, u32 channel, u32 percent) {
    const auto wanted = static_cast<i32>(percent * block.mean_channel_bits);  // hundredths of a bit
    const i32 drawn = wanted >= 100 * available ? available : wanted / 100;
    block.bits_target[channel] += drawn;
    available -= drawn;
}

u32 base_share(const CodingBlock &block, u32 channel) {
    if (block.ms_mask_present == MsMask::none) return 20;
    return channel == 0 ? 18 : 12;
}

}  // namespace

void reset_bit_targets(CodingBlock &block) {
    const auto mean = static_cast<i32>(block.mean_channel_bits);
    block.bits_target = {mean, mean};
}

i32 set_bit_tolerances(CodingBlock &block) {
    i32 available = static_cast<i32>(block.available_bits);
    for (u32 channel = 0; channel < block.num_channels; ++channel) {
        block.bits_tolerance[channel] = block.bits_target[channel] / 10;
        available -= block.bits_target[channel];
    }
    // A mid channel with more than the mean keeps the tolerance of the mean.
    block.bits_tolerance[0] = std::min(block.bits_tolerance[0], static_cast<i32>(block.mean_channel_bits / 10));
    return available;
}

void draw_from_reservoir(EncoderState &state, i32 &available, WindowSequence previous_window_sequence, u32 channel) {
    constexpr u32 window_change_share = 16;
    constexpr u32 tns_share = 6;
    constexpr u32 tns_share_at_window_change = 8;
    CodingBlock &block = state.coding;
    const WindowSequence sequence = block.window_sequence[channel];
    const bool window_change = sequence != WindowSequence::only_long && sequence != previous_window_sequence;

    if (window_change) draw(block, available, channel, window_change_share);
    draw(block, available, channel, base_share(block, channel));
    if (block.tns_data[channel].tns_data_present == 1) {
        draw(block, available, channel, window_change ? tns_share_at_window_change : tns_share);
    }
    if (state.config.channel_configuration == channel_configuration_two_mono) {
        const i32 excess = block.bits_target[channel] - static_cast<i32>(buffer_bits_per_channel);
        if (excess > 0) {
            block.bits_target[channel] -= excess;
            available += excess;
        }
    }
}

void update_reservoir(CodingBlock &block, u32 frame_bytes) {
    constexpr i32 max_reservoir_bytes = (1 << 20) - 1;
    const i32 saved = static_cast<i32>(block.mean_frame_bytes) - static_cast<i32>(frame_bytes);
    block.reservoir_bytes = std::clamp(block.reservoir_bytes + saved, 0, max_reservoir_bytes);
    const u32 available = 8 * static_cast<u32>(block.reservoir_bytes) + block.mean_frame_bits;
    block.available_bits = std::min(available, block.buffer_bits);
}

}  // namespace tavik
