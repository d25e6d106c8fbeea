// Temporal noise shaping with its autocorrelation, and mid/side: results in range, decisions that fit what was done.
#include <algorithm>
#include <cmath>
#include <vector>

#include "stage_input.h"
#include "target.h"
#include "tavik.h"

namespace tavik_fuzz {
namespace {

using tavik_test::require;

constexpr std::int32_t largest_line = (1 << 24) - 1;

// TNS_MAX_BANDS of ISO/IEC 14496-3 for long windows, by sampling_frequency_index.
constexpr std::uint32_t max_tns_bands[] = {31, 31, 34, 40, 42, 51, 46, 46, 42, 42, 42, 39};

void run_autocorrelation(InputBytes &input, Outcome &outcome) {
    static GuardedArray<std::int32_t> spectrum(1024);
    static GuardedArray<std::int64_t> r(13);
    draw_values(input, spectrum.values(), largest_line);
    const std::uint32_t n = input.between(0, 1024);
    const std::uint32_t start = 1024 - n;
    TAVIK_Autocorrelation(n, static_cast<std::int32_t>(start), spectrum.data(), r.data());
    r.check_guard();
    for (std::size_t lag = 0; lag < 13; ++lag) {
        std::int64_t sum = 0;
        for (std::size_t i = start; i + lag < 1024; ++i) sum += std::int64_t{spectrum[i]} * spectrum[i + lag];
        require(r[lag] == sum, "lag ", lag, " of ", n, " lines: ", r[lag], ", not ", sum);
    }
    outcome.add_output<std::int64_t>(r.values());
}

// The shift that it tells brings the highest set bit of the magnitude to bit 46.
void run_exponent(InputBytes &input, Outcome &outcome) {
    const std::uint64_t bits = input.long_word() | std::uint64_t{input.long_word()} << 32;
    const auto x = static_cast<std::int64_t>(bits >> input.below(64));
    const std::int64_t exponent[] = {TAVIK_q47exp4(x)};
    const double magnitude = std::ldexp(std::abs(static_cast<double>(x)), static_cast<int>(exponent[0]));
    // The conversion may round 2^n - 1 up to 2^n.
    const bool is_normal = magnitude >= std::ldexp(1, 46) && magnitude <= std::ldexp(1, 47);
    require(x == 0 ? exponent[0] == 0 : is_normal, "exponent of ", x, ": ", exponent[0]);
    outcome.add_output(std::span<const std::int64_t>(exponent));
}

void check_filter(const TavikTnsData &tns, std::uint32_t band_count) {
    require(tns.tns_data_present == 1 && tns.length >= 1 && tns.length <= band_count, "TNS over ", tns.length,
            " bands");
    require(tns.order >= 1 && tns.order <= 12, "TNS of order ", tns.order);
    bool fits_three_bits = true;
    for (std::size_t i = 0; i < 12; ++i) {
        require(tns.coef[i] >= -8 && tns.coef[i] <= 7, "TNS coefficient ", tns.coef[i]);
        require(i < tns.order || tns.coef[i] == 0, "TNS coefficient behind the last");
        if (tns.coef[i] < -4 || tns.coef[i] > 3) fits_three_bits = false;
    }
    require(tns.coef[tns.order - 1] != 0, "last TNS coefficient 0");
    require(tns.coef_compress == (fits_three_bits ? 1u : 0u), "TNS coef_compress ", tns.coef_compress);
}

// The filter of the quantized reflection coefficients, in direct form, from lag 1 on.
std::vector<double> direct_form(const TavikTnsData &tns) {
    std::vector<double> c;
    for (std::size_t m = 0; m < tns.order; ++m) {
        const double k = std::sin(tns.coef[m] * M_PI / (tns.coef[m] >= 0 ? 15 : 17));
        const std::vector<double> lower = c;
        for (std::size_t i = 0; i < m; ++i) c[i] += k * lower[m - 1 - i];
        c.push_back(k);
    }
    return c;
}

void check_filtered(const TavikTnsData &tns, std::span<const std::int32_t> before,
                    std::span<const std::int32_t> after) {
    const std::vector<double> c = direct_form(tns);
    double gain = 1;
    for (const double value : c) gain += std::abs(value);
    const double largest = std::abs(
        static_cast<double>(*std::ranges::max_element(before, {}, [](std::int32_t x) { return std::abs(x); })));
    const double tolerance = 2 + 1e-5 * gain * largest;
    for (std::size_t k = 0; k < before.size(); ++k) {
        double sum = before[k];
        for (std::size_t i = 0; i < c.size() && i < k; ++i) sum += c[i] * before[k - 1 - i];
        require(std::abs(after[k] - sum) <= tolerance, "TNS line ", k, ": ", after[k], ", not ", sum);
    }
}

// The filter starts at a band edge and ends with the coded bands or before.
void run_temporal_noise_shaping(InputBytes &input, Outcome &outcome) {
    static GuardedArray<std::int32_t> spectrum(1024);
    static GuardedArray<TavikTnsData> tns(1);
    const std::uint32_t rate_index = input.below(12);
    const std::uint32_t band_count = TAVIK_NumSwbLongWindow[rate_index];
    const std::uint32_t coded_band_count = input.between(1, band_count);
    draw_values(input, spectrum.values(), largest_line);
    const std::vector<std::int32_t> before(spectrum.values().begin(), spectrum.values().end());
    const TavikTnsData none{};
    tns[0] = none;
    TAVIK_TemporalNoiseShaping(tns.data(), spectrum.data(), static_cast<std::int32_t>(rate_index), band_count,
                               coded_band_count);
    tns.check_guard();
    spectrum.check_guard();
    const std::uint32_t *edges = TAVIK_SwbOffsetLong[rate_index];
    std::size_t first = 1024, last = 1024;
    if (tns[0].tns_data_present != 0) {
        check_filter(tns[0], band_count);
        first = edges[band_count - tns[0].length];
        last = edges[std::min(coded_band_count, max_tns_bands[rate_index])];
        check_filtered(tns[0], std::span(before).subspan(first, last - first),
                       spectrum.values().subspan(first, last - first));
    }
    for (std::size_t k = 0; k < 1024; ++k) {
        require((k >= first && k < last) || spectrum[k] == before[k], "TNS changes line ", k);
    }
    outcome.add_output<std::int32_t>(spectrum.values());
    outcome.add_output<TavikTnsData>(tns.values());
}

void run_mid_side(InputBytes &input, Outcome &outcome) {
    static GuardedArray<std::int32_t> spectra(2048 + 1024), targets(2);
    static GuardedArray<std::uint32_t> ms_used(52);
    const std::uint32_t rate_index = input.below(12);
    const std::uint32_t max_sfb = input.between(1, TAVIK_NumSwbLongWindow[rate_index]);
    const auto mean = static_cast<std::int32_t>(input.between(168, 6144));
    const auto left = spectra.values().first(1024), right = spectra.values().last(1024);
    draw_values(input, left, largest_line);
    if (input.below(2) == 0) {
        draw_values(input, right, largest_line);
    } else {
        draw_values(input, right, 1000);
        for (std::size_t k = 0; k < 1024; ++k) right[k] += left[k] / (1 + static_cast<std::int32_t>(k / 512));
    }
    const std::vector<std::int32_t> before(spectra.values().begin(), spectra.values().end());
    targets[0] = targets[1] = mean;
    std::uint32_t mask = 99;
    TAVIK_MSStereo(spectra.data(), rate_index, ms_used.data(), targets.data(), &mask, max_sfb, input.below(2));
    spectra.check_guard();
    ms_used.check_guard();
    require(mask <= 2, "ms_mask_present ", mask);
    require(targets[0] >= mean && targets[1] >= mean / 10 && targets[1] <= mean, "targets ", targets[0], ", ",
            targets[1]);
    require(targets[0] + targets[1] <= 2 * mean, "targets beyond the mean");
    std::size_t k = 0;
    for (std::uint32_t band = 0; band < max_sfb; ++band) {
        require(ms_used[band] <= 1, "ms_used ", ms_used[band]);
        const bool is_mid_side = mask == 2 || (mask == 1 && ms_used[band] == 1);
        for (; k < TAVIK_SwbOffsetLong[rate_index][band + 1]; ++k) {
            const std::int32_t l = before[k], r = before[2048 + k];
            require(left[k] == (is_mid_side ? (l + r) >> 1 : l) && right[k] == (is_mid_side ? (l - r) >> 1 : r),
                    "line ", k);
        }
    }
    for (; k < 1024; ++k) require(left[k] == before[k] && right[k] == before[2048 + k], "mid/side changes line ", k);
    outcome.add_output<std::int32_t>(targets.values());
    outcome.add_output(std::span<const std::uint32_t>(ms_used.data(), max_sfb));
}

}  // namespace

const char *const unit_name = "stages run";

Outcome run_target(std::span<const std::uint8_t> bytes) {
    static constexpr void (*stages[])(InputBytes &, Outcome &) = {run_autocorrelation, run_exponent,
                                                                  run_temporal_noise_shaping, run_mid_side};
    return run_stages(bytes, stages);
}

}  // namespace tavik_fuzz
