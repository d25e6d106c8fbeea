// The coded bands of a channel as the rate loop needs them at every trial, gathered once per search.
#pragma once

#include "quant/coded_bands.h"

namespace tavik {

struct RateBand {
    u32 peak;  // largest 3/4 power
    u16 begin;
    u16 width;
    u8 entry;         // in band arrays
    u8 sf_offset;     // 0 ... 18
    u8 starts_group;  // 1: the first of its window group
};

// Up to 51 bands of a long block, or 15 in each of up to 3 groups.
class RateBands {
 public:
    RateBands(const CodingBlock &block, ConstPow34 pow34, ConstBandArray band_sf_offset, u32 channel);

    const RateBand *begin() const { return bands_.data(); }
    const RateBand *end() const { return bands_.data() + count_; }

 private:
    std::array<RateBand, max_bands> bands_;
    u32 count_ = 0;
};

}  // namespace tavik
