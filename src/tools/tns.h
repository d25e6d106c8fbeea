// Temporal noise shaping of long blocks: linear prediction across frequency.
#pragma once

#include "common/encoder_context.h"

namespace tavik {

// If linear prediction across the upper spectrum has an energy gain of at least 129/64, quantizes a filter of order up
// to 12, filters that part of the spectrum in place and fills `tns`; otherwise leaves both untouched. band_count: of
// all long-window bands of the rate; coded_band_count: of those that are coded.
void temporal_noise_shaping(TavikTnsData &tns, Spectrum spectrum, u32 sampling_rate_index, u32 band_count,
                            u32 coded_band_count);

}  // namespace tavik
