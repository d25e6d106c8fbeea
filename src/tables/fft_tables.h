// Rotations and bit reversals of the FFT, computed from their formulas.
#pragma once

#include <array>
#include <bit>

#include "tables/trigonometry.h"

namespace tavik::tables {

// The rotation by an eighth turn, about cos(pi / 4) in Q31 (0x5A82799A to nearest). Every stream depends on this very
// value, so it stays.
inline constexpr i32 cos_eighth_turn_q31 = 0x5A827B70;

// By an angle a, Q30: c = cos a, p = -(cos a + sin a), q = sin a - cos a.
struct Rotation {
    i32 c, p, q;

    constexpr bool operator==(const Rotation &) const = default;
};

// A step of the FFT of size L = 16, 32 ... 512 rotates by a = 2 pi i / L and by 3 a, i < L/4: by less than 384 of the
// 512 parts of a turn.
inline constexpr u32 smallest_rotated_step = 16;
inline constexpr u32 largest_step = 512;
inline constexpr u32 eighth_turn = largest_step / 8;
inline constexpr u32 quarter_turn = largest_step / 4;

// The rotation by k parts. Those by one and by three eighths of a turn, which a step has at i = L/8, take their cosine
// from above. With it re of the one and im of the other come out as products of one rounding, as they have to.
consteval Rotation make_rotation(u32 k) {
    const i128 cosine = cos_pi(2 * i64{k}, largest_step);
    const i128 sine = sin_pi(2 * i64{k}, largest_step);
    Rotation rotation{static_cast<i32>(round_q60(cosine, 30)), static_cast<i32>(round_q60(-(cosine + sine), 30)),
                      static_cast<i32>(round_q60(sine - cosine, 30))};
    if (k == eighth_turn) rotation.c = cos_eighth_turn_q31 / 2;
    if (k == 3 * eighth_turn) rotation.c = -cos_eighth_turn_q31 / 2;
    return rotation;
}

#if defined(__aarch64__)

// The rotations up to an eighth turn, with s = sin a as the fourth value. All others follow from these.
inline constexpr u32 rotation_words = 4;

consteval std::array<i32, (eighth_turn + 1) * rotation_words> make_fft_rotations() {
    std::array<i32, (eighth_turn + 1) * rotation_words> table{};
    i32 *entry = table.data();
    for (u32 k = 0; k <= eighth_turn; ++k, entry += rotation_words) {
        const Rotation rotation = make_rotation(k);
        entry[0] = rotation.c;
        entry[1] = rotation.p;
        entry[2] = rotation.q;
        entry[3] = k == eighth_turn ? rotation.c : static_cast<i32>(round_q60(sin_pi(2 * i64{k}, largest_step), 30));
    }
    return table;
}

inline constexpr std::array fft_rotations = make_fft_rotations();

// The rotation by k parts, k < 384.
constexpr Rotation rotation_by(u32 k) {
    const u32 within = k % quarter_turn;
    const bool is_mirrored = within > eighth_turn;
    const i32 *entry = &fft_rotations[(is_mirrored ? quarter_turn - within : within) * rotation_words];
    const i32 c = entry[is_mirrored ? 3 : 0];
    const i32 s = entry[is_mirrored ? 0 : 3];
    const i32 p = entry[1];
    const i32 q = is_mirrored ? -entry[2] : entry[2];
    if (k < quarter_turn) return {c, p, q};
    if (k < 2 * quarter_turn) return {-s, q, -p};
    return {-c, -p, -q};
}

consteval bool follow_from_an_eighth_turn() {
    for (u32 i = 0; i < quarter_turn; ++i) {
        if (rotation_by(i) != make_rotation(i) || rotation_by(3 * i) != make_rotation(3 * i)) return false;
    }
    return true;
}

static_assert(follow_from_an_eighth_turn());

// The rotations of a step of size L.
class StepRotations {
 public:
    constexpr explicit StepRotations(u32 step) : stride_(largest_step / step) {}
    constexpr Rotation once(u32 i) const { return rotation_by(i * stride_); }        // by a
    constexpr Rotation thrice(u32 i) const { return rotation_by(3 * i * stride_); }  // by 3 a

 private:
    u32 stride_;
};

#else

// Those of each step by themselves, so that the compiler makes vectors of neighbours: c of all i, then p ... six kinds.
// Those of the smaller steps lie before them.
constexpr u32 fft_rotations_begin(u32 step) { return (step - smallest_rotated_step) / 4 * 6; }

consteval std::array<i32, fft_rotations_begin(2 * largest_step)> make_fft_rotations() {
    std::array<i32, fft_rotations_begin(2 * largest_step)> table{};
    for (u32 step = smallest_rotated_step; step <= largest_step; step *= 2) {
        const u32 run = step / 4;
        for (u32 i = 0; i < 2 * run; ++i) {  // by a, then by 3 a
            const Rotation rotation = make_rotation((i < run ? i : 3 * (i - run)) * (largest_step / step));
            i32 *entry = &table[fft_rotations_begin(step) + (i < run ? i : i + 2 * run)];
            entry[0] = rotation.c;
            entry[run] = rotation.p;
            entry[2 * run] = rotation.q;
        }
    }
    return table;
}

inline constexpr std::array fft_rotations = make_fft_rotations();

// The rotations of a step of size L.
class StepRotations {
 public:
    constexpr explicit StepRotations(u32 step) : run_(step / 4), begin_(&fft_rotations[fft_rotations_begin(step)]) {}
    constexpr Rotation once(u32 i) const { return at(begin_ + i); }               // by a
    constexpr Rotation thrice(u32 i) const { return at(begin_ + 3 * run_ + i); }  // by 3 a

 private:
    constexpr Rotation at(const i32 *c) const { return {c[0], c[run_], c[2 * run_]}; }

    u32 run_;
    const i32 *begin_;
};

#endif

// The indices below N, a power of two, with their bits in reverse order.
template <std::size_t N>
consteval std::array<u8, N> bit_reversal() {
    constexpr u32 bits = std::countr_zero(N);
    std::array<u8, N> table{};
    for (u32 i = 0; i < N; ++i) {
        for (u32 bit = 0; bit < bits; ++bit) {
            if ((i >> bit & 1) != 0) table[i] = static_cast<u8>(table[i] | 1u << (bits - 1 - bit));
        }
    }
    return table;
}

inline constexpr std::array<u8, 32> reversed_5_bits = bit_reversal<32>();
inline constexpr std::array<u8, 16> reversed_4_bits = bit_reversal<16>();
inline constexpr std::array<u8, 8> reversed_3_bits = bit_reversal<8>();

}  // namespace tavik::tables
