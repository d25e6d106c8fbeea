#include "filterbank/fft.h"

#include <algorithm>

namespace tavik {
namespace {

// Real and imaginary parts apart.
struct PlanarValues {
    static constexpr u32 lanes = 1;
    i32 *re;
    i32 *im;

    Complex<1> load(u32 i) const { return {{re[i]}, {im[i]}}; }
    void store(u32 i, Complex<1> x) const {
        re[i] = x.re.v;
        im[i] = x.im.v;
    }
    PlanarValues from(u32 i) const { return {re + i, im + i}; }
    bool operator==(const PlanarValues &) const = default;
};

// What is left in a block of 16 values: a transform of 16, or two of 8.
void transform_block(PlanarValues block, bool is_transform_of_16) {
    SixteenValues<1> x;
    for (u32 j = 0; j < 16; ++j) x[j] = block.load(j);
    if (is_transform_of_16) {
        step_16(&x[0]);
        transform_4(&x[8]);
        transform_4(&x[12]);
    } else {
        transform_8(&x[8]);
    }
    transform_8(&x[0]);
    for (u32 j = 0; j < 16; ++j) block.store(j, x[j]);
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
    const PlanarValues z{re.data(), im.data()};
    fft_steps(z, n);
    for (u32 b = 0; b < n / 16; ++b) transform_block(z.from(16 * b), is_transform(b));
    const auto reversed = n == 512 ? std::span<const u8>(tables::reversed_5_bits) : tables::reversed_3_bits;
    bit_reverse(re, reversed);
    bit_reverse(im, reversed);
}

}  // namespace tavik
