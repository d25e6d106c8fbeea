// Temporal noise shaping of long blocks: linear prediction across frequency.
#pragma once

#include "common/encoder_context.h"
#include "tools/linear_prediction.h"

namespace tavik {

// r[l] = sum over i < x.size() - l of x[i] x[i + l], modulo 2^64, of any lines; 0 for a lag without terms.
void autocorrelation(std::span<const i32> x, std::span<i64, tns_lags> r);

// Where linear prediction across the upper spectrum gains more than 129/64 in energy, quantizes a filter of order up to
// 12, filters that part of the spectrum in place and fills `tns`; else leaves both untouched. band_count: long-window
// bands of the rate; coded_band_count: those that are coded.
void temporal_noise_shaping(TavikTnsData &tns, Spectrum spectrum, u32 sampling_rate_index, u32 band_count,
                            u32 coded_band_count);

}  // namespace tavik
