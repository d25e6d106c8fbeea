// Kernels of mid/side stereo, over whole bands of long blocks: multiples of 4 lines.
#pragma once

#include <algorithm>

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

    void add(I32<N> left, I32<N> right) {
        const I32<N> l = left >> 1;
        const I32<N> r = right >> 1;
        both = add_distance(add_distance(both, l, I32<N>{}), r, I32<N>{});
        side = add_distance(side, l, r);
    }
};

// The sums of each band; band b has the lines offsets[b] ... offsets[b + 1] - 1.
template <u32 N>
inline void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums) {
    for (BandSums &sum_of_band : sums) {
        LaneSums<N> lanes;
        for_each_vector<N>(
            offsets[1] - offsets[0], [&](auto load, const i32 *l, const i32 *r) { lanes.add(load(l), load(r)); },
            left.data() + offsets[0], right.data() + offsets[0]);
        sum_of_band = {sum_of_lanes(lanes.both) >> 5, sum_of_lanes(lanes.side) >> 5};
        ++offsets;
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
    constexpr u32 lanes = std::min(N, 4u);  // twice lanes are eight lines or fewer
    i32 *l = left.data();
    i32 *r = right.data();
    const i32 *const end = l + left.size();
    if (left.size() % (2 * lanes) != 0) {
        store_mid_side<lanes>(l, r);
        l += lanes, r += lanes;
    }
    for (; l != end; l += 2 * lanes, r += 2 * lanes) {
        std::array<I32<lanes>, 2> a{};
        std::array<I32<lanes>, 2> b{};
        load_row(l, a);
        load_row(r, b);
        store_two(l, (a[0] + b[0]) >> 1, (a[1] + b[1]) >> 1);
        store_two(r, (a[0] - b[0]) >> 1, (a[1] - b[1]) >> 1);
    }
}

// Both with the lanes of this machine.
void band_sums(ConstSpectrum left, ConstSpectrum right, const u32 *offsets, std::span<BandSums> sums);
void to_mid_side(std::span<i32> left, std::span<i32> right);

}  // namespace tavik
