// Levinson-Durbin recursion in Q47 on normalised 64-bit values, unless a quick bound shows that prediction gains
// little; quantization of the reflection coefficients to the standard's 4-bit indices; the direct form of the
// moving-average filter whose inverse the decoder applies.
#include "tools/tns.h"

#include <algorithm>

#include "tools/linear_prediction.h"

namespace tavik {
namespace {

using tables::tns_max_order;

using Autocorrelation = std::array<i64, tns_lags>;

// Coefficient m, 1 <= m <= 12, is at index m - 1.
template <typename T>
using Coefficients = std::array<T, tns_max_order>;

// A Q47 value of any magnitude, prepared for multiplication: normalised to 2^46 ... 2^47 and split at bit 24.
struct Factor {
    i64 high;
    i64 low;
    i32 exponent;  // the shift that normalised it
};

Factor factor(i64 x_q47) {
    const i32 exponent = 47 - static_cast<i32>(std::bit_width(magnitude(x_q47)));
    const i64 normal = exponent >= 0 ? x_q47 << exponent : x_q47 >> -exponent;
    return {normal >> 24, normal & 0xFFFFFF, exponent};
}

// The product in Q47, to about 47 significant bits: the product of the low parts is left out.
i64 q47_mul(const Factor &a, i64 b_q47) {
    const Factor b = factor(b_q47);
    const i64 product_q47 = 2 * a.high * b.high + ((b.low * a.high) >> 23) + ((a.low * b.high) >> 23);
    return norm_shift(product_q47, -(a.exponent + b.exponent));
}

// (a / b) 2^(q + 24), b != 0: the dividend has its top bit at 62, the divisor at 30.
i64 q47_div(i64 a, i64 b, i32 q) {
    const i32 exponent_a = q47_exponent(a);
    const i32 exponent_b = q47_exponent(b);
    const i64 divisor = norm_shift(b, exponent_b - 16);
    const i64 quotient = norm_shift(a, exponent_a + 16) / divisor;  // NOLINT(clang-analyzer-core.DivideZero): b != 0
    return norm_shift(quotient, exponent_b - exponent_a + q - 8);
}

// Brings r[0], the largest, to 0.5 ... 1 in Q47. A value of exactly 0 has exponent 0 and thus prevents left shifts.
void normalise(Autocorrelation &r) {
    i32 shift = 47;
    for (const i64 value : r) shift = std::min(shift, q47_exponent(value));
    for (i64 &value : r) value = norm_shift(value, shift);
}

// With a sum of exactly 0 small values are not normalised: the recursion may then work on a few bits, and its error has
// little to do with that of the signal.
bool recursion_is_accurate(const Autocorrelation &r) { return std::ranges::find(r, 0) == r.end(); }

struct Prediction {
    Coefficients<i32> reflection_q23;
    i64 error_q47;  // energy of the prediction error
};

// One step of the order recursion: a_i += scaled(a_(m - i)) for 1 <= i < m, all from the values before the step.
template <typename Scale>
void extend(Coefficients<i64> &a, u32 m, Scale scaled) {
    for (u32 i = 1; 2 * i <= m; ++i) {
        i64 &low = a[i - 1];
        i64 &high = a[m - i - 1];
        const i64 new_low = wrap_add(low, scaled(high));
        high = wrap_add(high, scaled(low));
        low = new_low;
    }
}

// Levinson-Durbin recursion to order 12; sums wrap at 64 bits. Compiled for size: only one signal in ten gets here.
[[gnu::cold, gnu::noinline]] Prediction predict(const Autocorrelation &r_q47) {
    constexpr i64 max_k_q47 = (i64{1} << 47) - 1;  // |k| < 1
    Prediction result{{}, r_q47[0]};
    Coefficients<i64> a_q47;         // at step m, the first m - 1
    Coefficients<Factor> r_factors;  // of r_q47[1] on, likewise
    for (u32 m = 1; m <= tns_max_order; ++m) {
        i64 sum_q47 = r_q47[m];
        for (u32 i = 1; i < m; ++i) sum_q47 = wrap_add(sum_q47, q47_mul(r_factors[m - i - 1], a_q47[i - 1]));
        r_factors[m - 1] = factor(r_q47[m]);
        i64 k_q47 = wrap_neg(sum_q47);
        if (sum_q47 != 0 && result.error_q47 != 0) k_q47 = q47_div(k_q47, result.error_q47, 23);
        k_q47 = std::clamp(k_q47, -max_k_q47, max_k_q47);
        result.reflection_q23[m - 1] = static_cast<i32>(k_q47 >> 24);

        const Factor k = factor(k_q47);
        extend(a_q47, m, [&k](i64 other_q47) { return q47_mul(k, other_q47); });
        a_q47[m - 1] = k_q47;
        const i64 k_squared_q47 = q47_mul(k, k_q47);
        result.error_q47 = wrap_sub(result.error_q47, q47_mul(factor(result.error_q47), k_squared_q47));
    }
    return result;
}

// Whether energy / prediction error is at least 129/64; bits 24 and up of a Q30 gain count 64ths.
bool prediction_gain_is_high(i64 energy_q47, i64 error_q47) {
    const i64 gain_q30 = error_q47 != 0 ? q47_div(energy_q47, error_q47, 6) : energy_q47;
    return gain_q30 >> 24 > 128;
}

// Stores the index of a reflection coefficient (Q23) and returns the value that it stands for (Q23).
i32 quantize_coefficient(i32 k_q23, i32 &index) {
    const u32 k_q10 = std::min(magnitude(k_q23) >> 13, 1023u);  // 1024 would have an index of more than 4 bits
    if (k_q23 >= 0) {
        index = TAVIK_asinf_index_p[k_q10];
        return TAVIK_sin_table_p[index];
    }
    index = TAVIK_asinf_index_m[k_q10];
    return TAVIK_sin_table_m[-index];
}

// Direct-form coefficients of the filter with the given reflection coefficients; 0 after the last.
[[gnu::cold, gnu::noinline]] Coefficients<i32> direct_form(std::span<const i32> reflection_q23) {
    Coefficients<i64> b_q45;  // at step m, the first m - 1
    for (u32 m = 1; m <= reflection_q23.size(); ++m) {
        const i64 k_q23 = reflection_q23[m - 1];
        extend(b_q45, m, [k_q23](i64 other_q45) { return 2 * k_q23 * static_cast<i32>(other_q45 >> 24); });
        b_q45[m - 1] = k_q23 << 22;
    }
    Coefficients<i32> c_q24{};
    for (u32 i = 0; i < reflection_q23.size(); ++i) c_q24[i] = static_cast<i32>(b_q45[i] >> 21);
    return c_q24;
}

bool fits_three_bits(i32 coef) { return coef >= -4 && coef <= 3; }

}  // namespace

void temporal_noise_shaping(TavikTnsData &tns, Spectrum spectrum, u32 sampling_rate_index, u32 band_count,
                            u32 coded_band_count) {
    const u32 start_band = tables::tns_start_band[sampling_rate_index];
    const u32 top_band = std::min(tables::tns_max_band[sampling_rate_index], coded_band_count);
    if (top_band <= start_band) return;
    const u32 start = TAVIK_SwbOffsetLong[sampling_rate_index][start_band];
    const u32 end = TAVIK_SwbOffsetLong[sampling_rate_index][top_band];
    const auto range = std::span<i32>(spectrum).subspan(start, end - start);

    Autocorrelation r;
    autocorrelation(range, r);
    if (r[0] == 0 || (recursion_is_accurate(r) && prediction_gain_is_low(r))) return;
    normalise(r);
    const Prediction prediction = predict(r);
    if (!prediction_gain_is_high(r[0], prediction.error_q47)) return;

    Coefficients<i32> reflection_q23;
    u32 order = 0;
    for (u32 i = 0; i < tns_max_order; ++i) {
        reflection_q23[i] = quantize_coefficient(prediction.reflection_q23[i], tns.coef[i]);
        if (reflection_q23[i] != 0) order = i + 1;
    }
    tns.tns_data_present = 1;
    tns.length = band_count - start_band;
    tns.order = order;
    tns.coef_compress = std::ranges::all_of(std::span(tns.coef).first(order), fits_three_bits) ? 1 : 0;

    shaping_filter(range, direct_form(std::span(reflection_q23).first(order)));
}

}  // namespace tavik
