// Kernels of mid/side stereo, over whole bands of long blocks: multiples of 4 lines.
#pragma once

#include "common/encoder_context.h"
#include "common/lanes.h"

namespace tavik {

// Magnitude sums of a band: |l| + |r| and |l - r| of the halved lines, / 32; they wrap at 32 bits before the division.
struct BandSums {
    i32 both;
    i32 side;
    bool operator==(const BandSums &) const = default;
};

// A band's sums in every lane. A difference of halved lines fits 32 bits.
template <u32 N>
struct LaneSums {
    I32<N> both{};
    I32<N> side{};

    void add(const i32 *left, const i32 *right) {
        const I32<N> l = I32<N>::load(left) >> 1;
        const I32<N> r = I32<N>::load(right) >> 1;
        both += abs(l) + abs(r);
        side += abs(l - r);
    }
};

// The sums of each band; band b has the lines offsets[b] ... offsets[b + 1] - 1.
template <u32 N>
inline void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums) {
    const i32 *l = left.data() + offsets[0];
    const i32 *r = right.data() + offsets[0];
    for (BandSums &sum_of_band : sums) {
        const i32 *const end = left.data() + *++offsets;
        i32 both = 0;
        i32 side = 0;
        if constexpr (N == 8) {
            if ((end - l) % 8 != 0) {
                LaneSums<4> four;
                four.add(l, r);
                l += 4, r += 4;
                both = sum(four.both);
                side = sum(four.side);
            }
        }
        LaneSums<N> lanes;
        for (; l != end; l += N, r += N) lanes.add(l, r);
        sum_of_band = {wrap_add(both, sum(lanes.both)) >> 5, wrap_add(side, sum(lanes.side)) >> 5};
    }
}

template <u32 N>
inline void store_mid_side(i32 *left, i32 *right) {
    const auto l = I32<N>::load(left);
    const auto r = I32<N>::load(right);
    ((l + r) >> 1).store(left);
    ((l - r) >> 1).store(right);
}

// (l + r) / 2 and (l - r) / 2, rounded down, in place of l and r.
template <u32 N>
inline void to_mid_side(std::span<i32> left, std::span<i32> right) {
    i32 *l = left.data();
    i32 *r = right.data();
    const i32 *const end = l + left.size();
    if constexpr (N == 8) {
        if (left.size() % 8 != 0) {
            store_mid_side<4>(l, r);
            l += 4, r += 4;
        }
    }
    for (; l != end; l += N, r += N) store_mid_side<N>(l, r);
}

}  // namespace tavik
