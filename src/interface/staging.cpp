#include "interface/staging.h"

namespace tavik {
namespace {

void advance_delay_line(EncoderState &state, u32 channel) {
    i32 *older = state.time_history[channel].data();
    i32 *newer = older + frame_length;
    copy_frame<native_lanes>(newer, older);
    copy_frame<native_lanes>(state.lookahead_input[channel].data(), newer);
}

}  // namespace

void stage_input(EncoderState &state, const i16 *pcm, u32 count) {
    const u32 channels = state.coding.num_channels;
    auto &lookahead = state.lookahead_input;
    for (u32 channel = 0; channel < channels; ++channel) advance_delay_line(state, channel);
    const u32 in_eights = count / 8 * 8;
    if (channels == 1) {
        read_mono<native_lanes>(pcm, in_eights, lookahead[0].data());
    } else {
        read_stereo<native_lanes>(pcm, in_eights, lookahead[0].data(), lookahead[1].data());
    }
    for (u32 channel = 0; channel < channels; ++channel) {
        for (u32 i = in_eights; i < frame_length; ++i) {
            lookahead[channel][i] = i < count ? pcm[i * channels + channel] : 0;
        }
    }
}

}  // namespace tavik
