// The NEON band counters, each compared with its portable twin at every call.
#pragma once

#include <algorithm>
#include <array>

#include "quant/band_counter.h"

namespace tavik::checked {

inline constexpr u32 most_lines = 256;  // of a band: 7 windows of 36 lines or fewer, or 96 lines

// Runs the fast and the reference version of a band counter with the same further arguments.
template <typename Fast, typename Reference>
auto compare(const BandLines &band, Fast fast, Reference reference) {
    std::array<i32, most_lines> expected;
    const auto expected_bits = reference(BandLines{band.pow34, band.spectrum, expected.data(), band.count});
    const auto bits = fast(band);
    require_equal(bits == expected_bits && std::equal(band.quantized, band.quantized + band.count, expected.data()));
    return bits;
}

inline PairBits count_signed_quads(const BandLines &band, u32 gain) {
    return compare(
        band, [=](const BandLines &lines) { return neon::count_signed_quads(lines, gain); },
        [=](const BandLines &lines) { return portable::count_signed_quads(lines, gain); });
}

inline PairBits count_quads(const BandLines &band, u32 gain) {
    return compare(
        band, [=](const BandLines &lines) { return neon::count_quads(lines, gain); },
        [=](const BandLines &lines) { return portable::count_quads(lines, gain); });
}

inline PairBits count_signed_pairs(const BandLines &band, u32 gain) {
    return compare(
        band, [=](const BandLines &lines) { return neon::count_signed_pairs(lines, gain); },
        [=](const BandLines &lines) { return portable::count_signed_pairs(lines, gain); });
}

inline PairBits count_pairs(const BandLines &band, u32 gain, const tables::PackedLength *lengths, u32 radix) {
    return compare(
        band, [=](const BandLines &lines) { return neon::count_pairs(lines, gain, lengths, radix); },
        [=](const BandLines &lines) { return portable::count_pairs(lines, gain, lengths, radix); });
}

inline u32 count_escape_pairs(const BandLines &band, u32 gain) {
    return compare(
        band, [=](const BandLines &lines) { return neon::count_escape_pairs(lines, gain); },
        [=](const BandLines &lines) { return portable::count_escape_pairs(lines, gain); });
}

}  // namespace tavik::checked
