// Deterministic test signals, the same on every machine: integer arithmetic only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tavik_test {

enum class SignalKind {
    silence,
    dither,              // -1, 0 and 1 at random
    white_noise,         // uniform over the whole range of a sample, independent channels
    sweep,               // a sine from 0 Hz to half the sampling rate; odd channels run the other way
    full_scale_square,   // highest and lowest sample value; the period changes now and then
    silence_full_scale,  // stretches of silence and of full-scale samples of random sign, independent channels
    transients,          // sharp bursts that die away, as of castanets, in silence; independent channels
    music                // chords of decaying partials, every other chord spread between left and right
};

inline constexpr std::array all_signal_kinds = {SignalKind::silence,           SignalKind::dither,
                                                SignalKind::white_noise,       SignalKind::sweep,
                                                SignalKind::full_scale_square, SignalKind::silence_full_scale,
                                                SignalKind::transients,        SignalKind::music};

// The enumerator's name.
std::string_view name(SignalKind kind);

// Interleaved samples. sample_rate in Hz, at least 8000. Kinds without randomness ignore the seed.
std::vector<std::int16_t> make_signal(SignalKind kind, unsigned channels, std::size_t samples_per_channel,
                                      unsigned sample_rate, std::uint32_t seed);

// level (a sample) times the sine of a phase in units of 2^-32 turns, to within 0.1 %.
std::int16_t sine(std::int64_t level, std::uint64_t phase);

}  // namespace tavik_test
