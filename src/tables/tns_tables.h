// Tables of temporal noise shaping that are not exported, by sampling_frequency_index.
#pragma once

#include <array>

#include "common/fixed_point.h"

namespace tavik::tables {

inline constexpr u32 tns_max_order = 12;

// First long-window scale-factor band that is filtered.
extern const std::array<u32, 12> tns_start_band;

// The standard's TNS_MAX_BANDS for long windows of AAC LC.
extern const std::array<u32, 12> tns_max_band;

// Lowest bit rate per channel, in bit/s, at which temporal noise shaping is attempted.
extern const std::array<u32, 12> tns_min_bitrate;

}  // namespace tavik::tables
