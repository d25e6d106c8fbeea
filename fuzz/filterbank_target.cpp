// FFT, MDCT, filter bank, low-pass and attack detection: one result of each transform against its defining sum in
// double precision, the others against their definition.
#include <algorithm>
#include <cmath>
#include <vector>

#include "stage_input.h"
#include "target.h"
#include "tavik.h"

namespace tavik_fuzz {
namespace {

using tavik_test::require;
using Values = std::span<std::int32_t>;

struct Arrays {
    GuardedArray<std::int32_t> block{2048};
    GuardedArray<std::int32_t> scratch{1024};

    void check_guards() const {
        block.check_guard();
        scratch.check_guard();
    }
};

// The caller's headroom holds for every input whose magnitudes add up to less than 2^29.
void run_fft(InputBytes &input, Outcome &outcome) {
    const std::size_t n = input.below(2) == 0 ? 512 : 64;
    static GuardedArray<std::int32_t> re512(512), im512(512), re64(64), im64(64);
    GuardedArray<std::int32_t> &re = n == 512 ? re512 : re64, &im = n == 512 ? im512 : im64;
    const auto limit = static_cast<std::int32_t>((1u << 28) / n) - 1;
    draw_values(input, re.values(), limit);
    draw_values(input, im.values(), limit);
    const std::size_t k = input.word() % n;
    double expected_re = 0, expected_im = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double angle = -2 * M_PI * static_cast<double>(i * k % n) / static_cast<double>(n);
        expected_re += re[i] * std::cos(angle) - im[i] * std::sin(angle);
        expected_im += re[i] * std::sin(angle) + im[i] * std::cos(angle);
    }
    TAVIK_ZOLF_srfft(re.data(), im.data(), static_cast<std::int32_t>(n));
    re.check_guard();
    im.check_guard();
    // Each of the stages truncates what has passed the stages before.
    const double tolerance = n == 512 ? 300 : 40;
    require(std::abs(re[k] - expected_re) < tolerance, "FFT, real part of ", k, ": ", re[k], ", not ", expected_re);
    require(std::abs(im[k] - expected_im) < tolerance, "FFT, imaginary part of ", k, ": ", im[k], ", not ",
            expected_im);
    outcome.add_output<std::int32_t>(re.values());
    outcome.add_output<std::int32_t>(im.values());
}

template <typename T>
double mdct_line(std::span<const T> windowed, std::size_t k) {
    const auto length = static_cast<double>(windowed.size());
    double sum = 0;
    for (std::size_t p = 0; p < windowed.size(); ++p) {
        const double time = static_cast<double>(p) + (length / 2 + 1) / 2;
        sum += windowed[p] * std::cos(2 * M_PI / length * time * (static_cast<double>(k) + 0.5));
    }
    return sum / 512;
}

void run_mdct(InputBytes &input, Outcome &outcome) {
    static GuardedArray<std::int32_t> long_block(2048), short_block(256), long_scratch(1024), short_scratch(128);
    const std::size_t n = input.below(2) == 0 ? 1024 : 128;
    GuardedArray<std::int32_t> &block = n == 1024 ? long_block : short_block;
    GuardedArray<std::int32_t> &scratch = n == 1024 ? long_scratch : short_scratch;
    draw_values(input, block.values(), 1 << 22);
    const std::size_t k = input.word() % n;
    const double expected = mdct_line<std::int32_t>(block.values(), k);
    const std::vector<std::int32_t> tail(block.values().begin() + static_cast<std::ptrdiff_t>(n), block.values().end());
    TAVIK_MDCT_FAST(block.data(), static_cast<std::uint32_t>(n), scratch.data());
    block.check_guard();
    scratch.check_guard();
    require(std::abs(block[k] - expected) < 24, "MDCT line ", k, ": ", block[k], ", not ", expected);
    require(std::ranges::equal(tail, block.values().last(n)), "MDCT changes the second half");
    outcome.add_output<std::int32_t>(block.values());
}

// The rising half of the standard's sine window of so many samples.
double rise(std::size_t p, std::size_t length) {
    return std::sin(M_PI / static_cast<double>(length) * (static_cast<double>(p) + 0.5));
}

// Weight of sample p of 2048 in a long block: each half long, or short between flat parts.
double long_weight(std::size_t p, bool starts_short, bool ends_short) {
    const bool is_rising = p < 1024;
    const std::size_t q = is_rising ? p : 2047 - p;  // both halves as rising ones
    if (!(is_rising ? starts_short : ends_short)) return rise(q, 2048);
    return q < 448 ? 0 : q < 576 ? rise(q - 448, 256) : 1;
}

// Line k of the spectrum in coding order of windows: the defining sum over windowed samples, scaled as MDCT input is.
double filter_bank_line(std::span<const std::int32_t> samples, std::int32_t sequence, std::size_t k) {
    const bool is_eight_short = sequence == 2;
    const std::size_t length = is_eight_short ? 256 : 2048;
    const std::size_t begin = is_eight_short ? 448 + k / 128 * 128 : 0;
    std::vector<double> windowed(length);
    for (std::size_t p = 0; p < length; ++p) {
        const double weight = is_eight_short ? rise(p, 256) : long_weight(p, sequence == 3, sequence == 1);
        windowed[p] = 128 * weight * samples[begin + p];
    }
    return mdct_line<double>(windowed, is_eight_short ? k % 128 : k);
}

void run_filter_bank(InputBytes &input, Outcome &outcome) {
    static GuardedArray<std::int32_t> history(4096);
    static Arrays arrays;
    draw_values(input, history.values().first(2048), 32767);
    draw_values(input, history.values().last(2048), 32767);
    std::ranges::fill(arrays.block.values(), 7);
    const std::int32_t channel = static_cast<std::int32_t>(input.below(2));
    const std::int32_t sequence = static_cast<std::int32_t>(input.below(6)) - 1;
    const std::vector<std::int32_t> before(history.values().begin(), history.values().end());
    TAVIK_FilterBank(history.data(), arrays.block.data(), sequence, arrays.scratch.data(), channel, 0);
    arrays.check_guards();
    require(std::ranges::equal(before, history.values()), "the filter bank changes its input");
    const auto spectrum = arrays.block.values().first(1024);
    const bool is_sequence = sequence >= 0 && sequence <= 3;
    require(is_sequence || std::ranges::count(spectrum, 7) == 1024, "output without a window sequence");
    for (const std::int32_t line : spectrum) require(std::abs(line) < 1 << 24, "spectral line of ", line);
    if (is_sequence) {
        const std::size_t k = input.word() % 1024;
        const double expected = filter_bank_line(history.values().subspan(channel == 0 ? 0 : 2048, 2048), sequence, k);
        require(std::abs(spectrum[k] - expected) < 24, "sequence ", sequence, ", line ", k, ": ", spectrum[k], ", not ",
                expected);
    }
    outcome.add_output<std::int32_t>(spectrum);

    const std::uint32_t limit = input.between(0, 2000);
    std::vector<std::int32_t> expected(spectrum.begin(), spectrum.end());
    for (std::size_t k = limit; k < expected.size(); ++k) expected[k] = 0;
    TAVIK_LowPass(arrays.block.data(), limit);
    require(std::ranges::equal(spectrum, expected), "low-pass at ", limit);
}

// A row of calls, as the frame driver makes them.
void run_attack_detection(InputBytes &input, Outcome &outcome) {
    static GuardedArray<std::int32_t> block(1024), peaks(16);
    std::ranges::fill(peaks.values(), 0);
    TavikAttackDetectorState state{};
    std::uint32_t short_run_active = 0, attack_index = 0;
    const std::uint32_t rate_index = input.below(12);
    for (unsigned calls = 1 + input.below(8); calls > 0; --calls) {
        std::copy_n(peaks.data() + 8, 8, peaks.data());
        draw_values(input, block.values(), 32768);
        TAVIK_CalcAttack(block.data(), peaks.data() + 8);
        for (std::size_t b = 0; b < 8; ++b) {
            std::int32_t largest = 0;
            for (const std::int32_t x : block.values().subspan(128 * b, 128)) largest = std::max(largest, std::abs(x));
            require(peaks[8 + b] == largest, "peak of sub-block ", b, ": ", peaks[8 + b], ", not ", largest);
        }
        const bool was_short = short_run_active == 1;
        const std::uint32_t sequence =
            TAVIK_BlockSwitch(rate_index, peaks.data(), &short_run_active, &attack_index, &state);
        // A run of short blocks starts with LONG_START and ends with LONG_STOP.
        const bool is_short = sequence == 1 || sequence == 2;
        require(sequence < 4 && attack_index < 8, "window sequence ", sequence, ", attack ", attack_index);
        require(was_short ? sequence > 1 : sequence < 2, "window sequence ", sequence, " after short ", was_short);
        require(short_run_active == (is_short ? 1u : 0u), "short_run_active ", short_run_active);
        const std::uint32_t decision[] = {sequence, attack_index};
        outcome.add_output(std::span<const std::uint32_t>(decision));
    }
    peaks.check_guard();
}

}  // namespace

const char *const unit_name = "stages run";

Outcome run_target(std::span<const std::uint8_t> bytes) {
    static constexpr void (*stages[])(InputBytes &, Outcome &) = {run_fft, run_mdct, run_filter_bank,
                                                                  run_attack_detection};
    return run_stages(bytes, stages);
}

}  // namespace tavik_fuzz
