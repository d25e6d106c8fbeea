// Values in SIMD lanes: kernels are written once, as templates over the number of lanes. One lane is the reference,
// which reads as the mathematics; four are a register of NEON, SSE2 and SSE4.1, eight one of AVX2. Every number of
// lanes gives the same results on every machine: what a machine has no instruction for is done lane by lane.
//
// Compilers make most operations of plain vector code by themselves. Only the others have versions for a machine, in
// lanes_neon.h and lanes_x86.h: overloads for the numbers of lanes that it has.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <type_traits>
#include <utility>

#include "common/fixed_point.h"

namespace tavik {

// The lanes of 32 bits that kernels use on this machine, and whether leading zeros, and shifts by a count of each lane,
// take an instruction there.
#if defined(__aarch64__) && !defined(__AARCH64EB__)
inline constexpr u32 native_lanes = 4;
inline constexpr bool normalises_in_lanes = true;
#elif defined(__x86_64__)
#if defined(__AVX2__)
inline constexpr u32 native_lanes = 8;
#else
inline constexpr u32 native_lanes = 4;
#endif
inline constexpr bool normalises_in_lanes = false;
#else
inline constexpr u32 native_lanes = 1;
inline constexpr bool normalises_in_lanes = false;
#endif

template <typename T, u32 N>
struct VectorOf {
    using Type [[gnu::vector_size(N * sizeof(T))]] = T;
};
template <typename T>
struct VectorOf<T, 1> {
    using Type = T;
};

// N values of 32 bits. Arithmetic wraps; shifts to the right are those of T.
template <typename T, u32 N>
struct Lanes {
    using Vector = typename VectorOf<T, N>::Type;
    using Unsigned = typename VectorOf<u32, N>::Type;

    Vector v;

    static Lanes load(const T *from) {
        Lanes lanes{};
        __builtin_memcpy(&lanes.v, from, sizeof lanes.v);
        return lanes;
    }
    static Lanes all(T value) { return {Vector{} + value}; }
    void store(T *to) const { __builtin_memcpy(to, &v, sizeof v); }

    T operator[](u32 lane) const {
        if constexpr (N == 1) {
            return v;
        } else {
            return v[lane];
        }
    }
    void set(u32 lane, T value) {
        if constexpr (N == 1) {
            v = value;
        } else {
            v[lane] = value;
        }
    }

    // The same bits as values of another type.
    template <typename U>
    Lanes<U, N> as() const {
        return {std::bit_cast<typename VectorOf<U, N>::Type>(v)};
    }
    Unsigned bits() const { return std::bit_cast<Unsigned>(v); }
    static Lanes of_bits(Unsigned bits) { return {std::bit_cast<Vector>(bits)}; }

    friend Lanes operator+(Lanes a, Lanes b) { return of_bits(a.bits() + b.bits()); }
    friend Lanes operator-(Lanes a, Lanes b) { return of_bits(a.bits() - b.bits()); }
    friend Lanes operator*(Lanes a, Lanes b) { return of_bits(a.bits() * b.bits()); }
    friend Lanes operator&(Lanes a, Lanes b) { return of_bits(a.bits() & b.bits()); }
    friend Lanes operator|(Lanes a, Lanes b) { return of_bits(a.bits() | b.bits()); }
    friend Lanes operator^(Lanes a, Lanes b) { return of_bits(a.bits() ^ b.bits()); }
    friend Lanes operator<<(Lanes a, u32 count) { return of_bits(a.bits() << count); }
    friend Lanes operator>>(Lanes a, u32 count) { return {a.v >> count}; }
    friend Lanes operator>>(Lanes a, Lanes<u32, N> counts) { return {a.v >> counts.v}; }  // below 32
    Lanes &operator+=(Lanes other) { return *this = *this + other; }

    // -1 in lanes where it holds, 0 in others.
    friend Lanes<i32, N> operator<(Lanes a, Lanes b) { return mask(a.v < b.v); }
    friend Lanes<i32, N> operator==(Lanes a, Lanes b) { return mask(a.v == b.v); }

 private:
    template <typename M>
    static Lanes<i32, N> mask(M holds) {
        if constexpr (N == 1) {
            return {holds ? -1 : 0};
        } else {
            return {std::bit_cast<typename VectorOf<i32, N>::Type>(holds)};
        }
    }
};

template <u32 N>
using I32 = Lanes<i32, N>;
template <u32 N>
using U32 = Lanes<u32, N>;

// f(0), f(1) ... f(Count - 1) with the numbers as constants, whatever the optimisation.
template <u32 Count, typename F>
inline void unrolled(F f) {
    [&]<u32... I>(std::integer_sequence<u32, I...>) { (f(std::integral_constant<u32, I>()), ...); }
    (std::make_integer_sequence<u32, Count>());
}

// f(lane) in every lane.
template <typename T, u32 N, typename F>
inline Lanes<T, N> lane_by_lane(F f) {
    Lanes<T, N> result{};
    unrolled<N>([&](auto lane) { result.set(lane, f(lane)); });
    return result;
}

// Four values in the first lanes, 0 in the others.
template <u32 N, typename T>
inline Lanes<T, N> load_four(const T *from) {
    Lanes<T, N> lanes{};
    __builtin_memcpy(&lanes.v, from, std::min(4 * sizeof(T), sizeof lanes.v));
    return lanes;
}

// Calls f(load, at...) for the vectors of N of a band of several arrays, which begin at `first` and `others`: eight
// values a turn, after an odd four. `count` is a multiple of 4. load(at) loads such a vector.
template <u32 N, typename F, typename T, typename... Others>
inline void for_each_vector(u32 count, F f, T *first, Others *...others) {
    T *const end = first + count;
    if (N > 1 && count % 8 != 0) {
        f([](const auto *from) { return load_four<N>(from); }, first, others...);
        first += 4;
        ((others += 4), ...);
    }
    constexpr u32 step = N == 1 ? 1 : 8;
    while (first != end) {
        const auto load = [](const auto *from) { return Lanes<std::decay_t<decltype(*from)>, N>::load(from); };
        unrolled<step / N>([&](auto i) { f(load, first + i * N, (others + i * N)...); });
        first += step;
        ((others += step), ...);
    }
}

// Where the mask is -1 the lanes of a, where it is 0 those of b.
template <typename T, u32 N>
inline Lanes<T, N> select(I32<N> mask, Lanes<T, N> a, Lanes<T, N> b) {
    return Lanes<T, N>::of_bits((a.bits() & mask.bits()) | (b.bits() & ~mask.bits()));
}

template <typename T, u32 N>
inline Lanes<T, N> min(Lanes<T, N> a, Lanes<T, N> b) {
    return {a.v < b.v ? a.v : b.v};
}
template <typename T, u32 N>
inline Lanes<T, N> max(Lanes<T, N> a, Lanes<T, N> b) {
    return {a.v < b.v ? b.v : a.v};
}

// Magnitudes; that of -2^31 wraps to itself.
template <u32 N>
inline I32<N> abs(I32<N> x) {
    return max(x, I32<N>{} - x);
}

// a b / 2^Shift, rounded toward minus infinity; has to fit 32 bits. a 2^(31 - Shift) has to fit them too.
template <u32 Shift, u32 N>
inline I32<N> product(I32<N> a, I32<N> b) {
    return lane_by_lane<i32, N>([=](u32 lane) { return static_cast<i32>((i64{a[lane]} * b[lane]) >> Shift); });
}

// a b / 2^31, rounded to nearest, a half up.
template <u32 N>
inline I32<N> rounded_product_q31(I32<N> a, I32<N> b) {
    return lane_by_lane<i32, N>([=](u32 lane) { return static_cast<i32>((i64{a[lane]} * b[lane] + (1 << 30)) >> 31); });
}

// Sums of products in 64 bits, one for each lane.
template <u32 N>
struct WideLanes {
    std::array<i64, N> sums{};

    void add_product(I32<N> a, I32<N> b) {
        unrolled<N>([&](auto lane) { sums[lane] = wrap_add(sums[lane], i64{a[lane]} * b[lane]); });
    }
    // The low words of sums / 2^Shift, rounded toward minus infinity.
    template <u32 Shift>
    I32<N> shifted_down() const {
        return lane_by_lane<i32, N>([this](u32 lane) { return static_cast<i32>(sums[lane] >> Shift); });
    }
};

// One sum of the products of all lanes in 64 bits.
template <u32 N>
struct WideTotal {
    i64 sum = 0;

    void add_product(I32<N> a, I32<N> b) {
        unrolled<N>([&](auto lane) { sum = wrap_add(sum, i64{a[lane]} * b[lane]); });
    }
    i64 total() const { return sum; }
};

// The sum of all lanes, and the largest.
template <typename T, u32 N>
inline T sum_of_lanes(Lanes<T, N> x) {
    u32 total = 0;
    for (u32 lane = 0; lane < N; ++lane) total += static_cast<u32>(x[lane]);
    return static_cast<T>(total);
}
template <typename T, u32 N>
inline T largest_lane(Lanes<T, N> x) {
    T result = x[0];
    for (u32 lane = 1; lane < N; ++lane) result = result < x[lane] ? x[lane] : result;
    return result;
}

template <u32 N>
inline U32<N> leading_zeros(U32<N> x) {
    return lane_by_lane<u32, N>([=](u32 lane) { return static_cast<u32>(std::countl_zero(x[lane])); });
}

// table[index]
template <typename T, u32 N>
inline Lanes<u32, N> look_up(const T *table, U32<N> index) {
    return [=]<u32... L>(std::integer_sequence<u32, L...>)->U32<N> {
        return {typename U32<N>::Vector{static_cast<u32>(table[index[L]])...}};
    }
    (std::make_integer_sequence<u32, N>());
}

template <typename T, u32 N>
inline void store_looked_up(u32 *to, const T *table, U32<N> index) {
    std::array<u32, N> values{};
    unrolled<N>([&](auto lane) { values[lane] = static_cast<u32>(table[index[lane]]); });
    unrolled<N>([&](auto lane) { to[lane] = values[lane]; });
}

// Every byte of the index selects one of the table's bytes; 0 where the index is no place in it.
using ByteTable = std::array<u8, 16>;
template <u32 N>
inline U32<N> look_up_bytes(const ByteTable &table, U32<N> index) {
    return lane_by_lane<u32, N>([&](u32 lane) {
        u32 word = 0;
        for (u32 shift = 0; shift < 32; shift += 8) {
            const u32 i = index[lane] >> shift & 0xFF;
            if (i < table.size()) word |= u32{table[i]} << shift;
        }
        return word;
    });
}

// Lanes of a and b in a new order: the numbers count the lanes of a, then those of b.
template <typename T, u32 N, std::size_t... Lane>
inline Lanes<T, N> shuffled([[maybe_unused]] Lanes<T, N> a, [[maybe_unused]] Lanes<T, N> b,
                            [[maybe_unused]] std::index_sequence<Lane...> order) {
    if constexpr (N == 1) {
        return {(Lane == 0 ? a.v : b.v)...};
    } else {
        return {__builtin_shufflevector(a.v, b.v, Lane...)};
    }
}
template <typename T, u32 N>
inline Lanes<T, N> reversed(Lanes<T, N> x) {
    return [&]<std::size_t... L>(std::index_sequence<L...>) {
        return shuffled(x, x, std::index_sequence<(N - 1 - L)...>{});
    }
    (std::make_index_sequence<N>{});
}

// Copies 4 N words.
template <u32 N>
inline void copy_four(const i32 *from, i32 *to) {
    unrolled<4>([=](auto i) { I32<N>::load(from + i * N).store(to + i * N); });
}

// sum + |a - b|, for a difference that fits 32 bits.
template <u32 N>
inline I32<N> add_distance(I32<N> sum, I32<N> a, I32<N> b) {
    return sum + abs(a - b);
}

// Lanes 0, 2 ... of a, then of b.
template <typename T, u32 N>
inline Lanes<T, N> every_second(Lanes<T, N> a, Lanes<T, N> b) {
    return [&]<std::size_t... L>(std::index_sequence<L...>) { return shuffled(a, b, std::index_sequence<2 * L...>()); }
    (std::make_index_sequence<N>());
}

// The lanes of a but the first, then the first one of b.
template <typename T, u32 N>
inline Lanes<T, N> without_first(Lanes<T, N> a, Lanes<T, N> b) {
    return [&]<std::size_t... L>(std::index_sequence<L...>) {
        return shuffled(a, b, std::index_sequence<(L + 1)...>());
    }
    (std::make_index_sequence<N>());
}

// Vectors in a row.
template <u32 N, std::size_t V>
inline void load_row(const i32 *from, std::array<I32<N>, V> &to) {
    unrolled<V>([&](auto i) { to[i] = I32<N>::load(from + i * N); });
}

// Two vectors in a row.
template <u32 N>
inline void store_two(i32 *to, I32<N> first, I32<N> second) {
    first.store(to);
    second.store(to + N);
}

// 2 N words in pairs: the first of each pair, and the second.
template <u32 N>
struct Pairs {
    I32<N> first;
    I32<N> second;
};

template <u32 N>
inline Pairs<N> load_pairs(const i32 *from) {
    const auto low = I32<N>::load(from);
    const auto high = I32<N>::load(from + N);
    return [&]<std::size_t... L>(std::index_sequence<L...>)->Pairs<N> {
        return {shuffled(low, high, std::index_sequence<2 * L...>{}),
                shuffled(low, high, std::index_sequence<(2 * L + 1)...>{})};
    }
    (std::make_index_sequence<N>{});
}
// The same of pairs of 16 bits. In little-endian order a pair is a word whose low half is the first.
template <u32 N>
inline Pairs<N> load_pairs(const i16 *from) {
    if constexpr (std::endian::native == std::endian::little) {
        I32<N> pairs;
        __builtin_memcpy(&pairs.v, from, sizeof pairs.v);
        return {(pairs << 16) >> 16, pairs >> 16};
    } else {
        return {lane_by_lane<i32, N>([=](u32 lane) { return i32{from[2 * lane]}; }),
                lane_by_lane<i32, N>([=](u32 lane) { return i32{from[2 * lane + 1]}; })};
    }
}
template <u32 N>
inline void store_pairs(i32 *to, Pairs<N> x) {
    [&]<std::size_t... L>(std::index_sequence<L...>) {
        shuffled(x.first, x.second, std::index_sequence<(L / 2 + L % 2 * N)...>{}).store(to);
        shuffled(x.first, x.second, std::index_sequence<((N + L) / 2 + (N + L) % 2 * N)...>{}).store(to + N);
    }
    (std::make_index_sequence<N>{});
}

// Makes rows of columns: lane j of x[i] goes to lane i of x[j]. For each power of two the lanes whose number has it
// change places with those, in the vector as far away, whose number lacks it.
template <u32 Bit = 1, u32 N, std::size_t Rows>
inline void transpose(std::array<I32<N>, Rows> &x) {
    static_assert(Rows == N);
    if constexpr (Bit < N) {
        unrolled<N>([&x](auto i) {
            if constexpr ((i & Bit) == 0) {
                const I32<N> a = x[i];
                const I32<N> b = x[i + Bit];
                [&]<std::size_t... L>(std::index_sequence<L...>) {
                    x[i] = shuffled(a, b, std::index_sequence<((L & Bit) == 0 ? L : N + L - Bit)...>{});
                    x[i + Bit] = shuffled(a, b, std::index_sequence<((L & Bit) == 0 ? L + Bit : N + L)...>{});
                }
                (std::make_index_sequence<N>{});
            }
        });
        transpose<2 * Bit>(x);
    }
}

// Two numbers of two digits each in the given radix, and one of four digits.
template <u32 N>
inline std::array<i32, 2> pair_numbers(I32<N> x, i32 radix) {
    static_assert(N == 4);
    return {x[0] * radix + x[1], x[2] * radix + x[3]};
}
template <u32 N>
inline i32 quad_number(I32<N> x, i32 radix) {
    const auto [high, low] = pair_numbers(x, radix);
    return high * radix * radix + low;
}

}  // namespace tavik

#if defined(__aarch64__) && !defined(__AARCH64EB__)
#include "common/lanes_neon.h"
#elif defined(__x86_64__)
#include "common/lanes_x86.h"
#endif
