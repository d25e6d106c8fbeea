// MDCT of 2n samples through a complex FFT of n / 2 points: fold, rotate, transform, rotate.
#include "filterbank/mdct.h"

#include "filterbank/fft.h"

namespace tavik {
namespace {

// Pairs cos a, -sin a (Q27), a = 2 pi (k + 1/8) / 2n.
const i32 *rotations(std::size_t n) { return n == 1024 ? TAVIK_W2 : TAVIK_W4; }

// One half of a block: n samples folded to n / 4 values of pairs about its middle and as many of pairs from its ends.
template <typename Combine>
void fold_half(std::span<const i32> half, i32 *__restrict inner, i32 *__restrict outer, Combine combine) {
    const std::size_t n = half.size();
    for (std::size_t k = 0; k < n / 4; ++k) {
        inner[k] = combine(half[n / 2 + 2 * k], half[n / 2 - 1 - 2 * k]);
        outer[k] = combine(half[n - 1 - 2 * k], half[2 * k]);
    }
}

// The n / 2 complex values that a block folds to, in two parts.
struct Folded {
    std::span<i32> re;
    std::span<i32> im;

    explicit Folded(std::span<i32> n_words)
        : re(n_words.first(n_words.size() / 2)), im(n_words.last(n_words.size() / 2)) {}

    void take_rising_half(std::span<const i32> half) const {
        fold_half(half, im.data(), re.data() + re.size() / 2, [](i32 a, i32 b) { return wrap_sub(a, b); });
    }
    void take_falling_half(std::span<const i32> half) const {
        fold_half(half, re.data(), im.data() + im.size() / 2, [](i32 a, i32 b) { return wrap_add(a, b); });
    }
};

// Each value times 2^shift e^(-j a) 2^27 / 2^32.
void rotate(const i32 *__restrict pair, std::size_t count, u32 shift, i32 *__restrict re, i32 *__restrict im) {
    for (std::size_t k = 0; k < count; ++k) {
        const i32 r = re[k] << shift;
        const i32 i = im[k] << shift;
        const i32 c = pair[2 * k];
        const i32 s = pair[2 * k + 1];
        re[k] = wrap_sub(vector_mulhi(r, c), vector_mulhi(i, s));
        im[k] = wrap_add(vector_mulhi(i, c), vector_mulhi(r, s));
    }
}

// The FFT has four bits of headroom: values come to it divided by 16, and leave divided by 32. Then the real part
// gives, negated, the even coefficients, the imaginary part, backwards, the odd ones.
void transform(const Folded &folded, std::span<i32> out) {
    const i32 *pair = rotations(out.size());
    i32 *re = folded.re.data();
    i32 *im = folded.im.data();
    const std::size_t count = folded.re.size();
    rotate(pair, count, 1, re, im);
    fft(folded.re, folded.im);
    rotate(pair, count, 0, re, im);
    for (std::size_t k = 0; k < count; ++k) {
        out[2 * k] = wrap_sub(0, re[k]);
        out[2 * k + 1] = im[count - 1 - k];
    }
}

}  // namespace

void mdct(std::span<i32> buf, std::span<i32> scratch) {
    const std::size_t n = scratch.size();
    const Folded folded(scratch);
    folded.take_rising_half(buf.first(n));
    folded.take_falling_half(buf.last(n));
    transform(folded, buf.first(n));
}

// The spectrum holds one windowed half after the other first.
void portable::long_mdct(History x, const LongWindow &window, Spectrum spectrum, std::span<i32, frame_length> scratch) {
    const Folded folded(scratch);
    for (u32 p = 0; p < frame_length; ++p) spectrum[p] = windowed(x[p], window.rise[p]);
    folded.take_rising_half(spectrum);
    for (u32 p = 0; p < frame_length; ++p) {
        spectrum[p] = windowed(x[frame_length + p], window.fall[frame_length - 1 - p]);
    }
    folded.take_falling_half(spectrum);
    transform(folded, spectrum);
}

}  // namespace tavik
