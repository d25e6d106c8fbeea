// Mid/side stereo of a channel pair that shares one long window.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// Decides which of the first `max_sfb` bands are coded as mid and side, transforms them in place (channel 0 becomes
// mid, channel 1 side) and moves bits from the side's target to the mid's. On entry both targets are the channel's
// mean. tns_data_present: of both channels. Returns ms_mask_present; ms_used holds each band's own choice.
MsMask ms_stereo(Spectrum left, Spectrum right, u32 sampling_rate_index, std::span<u32, max_bands> ms_used,
                 std::span<i32, max_channels> bits_target, u32 max_sfb, bool tns_data_present);

}  // namespace tavik
