// The transform value by value, down to pairs, and then the bit reversal: the plain form of what fft.h does in lanes.
#include "filterbank/fft.h"

#include <algorithm>

namespace tavik {
namespace {

struct Values {
    i32 *re;
    i32 *im;

    Complex<1> at(u32 i) const { return {{re[i]}, {im[i]}}; }
    void set(u32 i, Complex<1> x) const {
        re[i] = x.re.v;
        im[i] = x.im.v;
    }
    Values from(u32 i) const { return {re + i, im + i}; }
};

// A step of size L >= 4.
void step(Values x, u32 size) {
    const u32 quarter = size / 4;
    for (u32 i = 0; i < quarter; ++i) {
        Complex<1> x0 = x.at(i);
        Complex<1> x1 = x.at(i + quarter);
        Complex<1> x2 = x.at(i + 2 * quarter);
        Complex<1> x3 = x.at(i + 3 * quarter);
        split(x0, x1, x2, x3);
        const auto [w1, w3] = tables::twiddle_pair<native_lanes>(i * (tables::max_fft_step / size));
        Complex<1> y2 = rotate(x2, w1);
        Complex<1> y3 = rotate(x3, w3);
        if (2 * i == quarter) {
            y2.im = scaled_difference(x2);
            y3.re = scaled_difference(x3);
        }
        x.set(i, x0);
        x.set(i + quarter, x1);
        x.set(i + 2 * quarter, y2);
        x.set(i + 3 * quarter, y3);
    }
}

void transform_pair(Values x) {
    Complex<1> a = x.at(0);
    Complex<1> b = x.at(1);
    butterfly(a, b);
    x.set(0, a);
    x.set(1, b);
}

// Swaps every x[p] with x[bitreverse(p)], p = high row + low: bitreverse(p) = reversed[low] row + reversed[high].
void bit_reverse(std::span<i32> x, std::span<const u8> reversed) {
    const std::size_t row = x.size() / reversed.size();
    for (std::size_t low = row - 1; low > 0; --low) {
        const std::size_t target = reversed[low];
        std::swap(x[low], x[row * target]);
        for (std::size_t high = 1; high < target; ++high) {
            std::swap(x[low + high * row], x[row * target + reversed[high]]);
        }
    }
}

}  // namespace

void fft(std::span<i32> re, std::span<i32> im) {
    const auto n = static_cast<u32>(re.size());
    const Values x{re.data(), im.data()};
    for (u32 size = n; size >= 4; size /= 2) {
        for_each_transform(n, size, [&](u32 p) { step(x.from(p), size); });
    }
    for_each_transform(n, 2, [&](u32 p) { transform_pair(x.from(p)); });
    const auto row_reversed = n == 512 ? std::span<const u8>(tables::reversed_5_bits) : tables::reversed_3_bits;
    bit_reverse(re, row_reversed);
    bit_reverse(im, row_reversed);
}

}  // namespace tavik
