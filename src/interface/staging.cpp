#include "interface/staging.h"

namespace tavik {
namespace {

void advance_delay_line(EncoderState &state, u32 channel) {
    const auto older = first_half(state.time_history[channel]);
    const auto newer = std::span(state.time_history[channel]).last<frame_length>();
    kernels::copy_frame(newer, older);
    kernels::copy_frame(state.lookahead_input[channel], newer);
}

}  // namespace

void portable::copy_frame(ConstFrame from, Frame to) { copy_elements(from.data(), frame_length, to.data()); }

void portable::read_mono(const i16 *pcm, u32 count, Frame samples) {
    for (u32 i = 0; i < count; ++i) samples[i] = pcm[i];
}

void portable::read_stereo(const i16 *pcm, u32 count, Frame left, Frame right) {
    for (u32 i = 0; i < count; ++i) {
        left[i] = pcm[2 * i];
        right[i] = pcm[2 * i + 1];
    }
}

void stage_input(EncoderState &state, const i16 *pcm, u32 count) {
    const u32 channels = state.coding.num_channels;
    auto &lookahead = state.lookahead_input;
    for (u32 channel = 0; channel < channels; ++channel) advance_delay_line(state, channel);
    const u32 in_eights = count / 8 * 8;
    if (channels == 1) {
        kernels::read_mono(pcm, in_eights, lookahead[0]);
    } else {
        kernels::read_stereo(pcm, in_eights, lookahead[0], lookahead[1]);
    }
    for (u32 channel = 0; channel < channels; ++channel) {
        for (u32 i = in_eights; i < frame_length; ++i) {
            lookahead[channel][i] = i < count ? pcm[i * channels + channel] : 0;
        }
    }
}

}  // namespace tavik
