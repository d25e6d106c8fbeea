// Every kernel gives with four and with eight lanes what it gives with one, on any machine.
#include "common/lanes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "filterbank/block_switching.h"
#include "filterbank/mdct.h"
#include "interface/staging.h"
#include "quant/power34.h"
#include "tools/linear_prediction.h"
#include "tools/mid_side.h"

using namespace tavik;

namespace {

using Words = std::vector<i32>;

// Words below 2^bits in magnitude, about as many of each size.
Words random_words(std::size_t count, int bits, u32 seed = 1) {
    std::mt19937 random(seed);
    Words words(count);
    for (i32 &word : words) {
        word = static_cast<i32>(random()) >> (32 - 1 - static_cast<int>(random() % static_cast<u32>(bits)));
    }
    return words;
}

// The words of any size, the extremes too.
Words all_sizes(std::size_t count) {
    Words words = random_words(count, 31);
    words[1] = std::numeric_limits<i32>::min();
    words[2] = std::numeric_limits<i32>::max();
    words[3] = 0;
    return words;
}

template <typename Lane>
class KernelsTest : public testing::Test {};

template <u32 N>
using NumberOfLanes = std::integral_constant<u32, N>;
using Numbers = testing::Types<NumberOfLanes<4>, NumberOfLanes<8>>;
TYPED_TEST_SUITE(KernelsTest, Numbers);

// f(N) with one lane and with those of the test.
template <u32 N, typename F>
void expect_equal(F f) {
    EXPECT_EQ(f(NumberOfLanes<N>()), f(NumberOfLanes<1>()));
}

// The results of an operation on lanes, one after the other.
template <u32 N, typename F>
Words in_lanes(const Words &x, F f) {
    Words results;
    for (std::size_t i = 0; i < x.size(); i += N) {
        const auto result = f(I32<N>::load(&x[i]));
        for (u32 lane = 0; lane < N; ++lane) results.push_back(static_cast<i32>(result[lane]));
    }
    return results;
}

TYPED_TEST(KernelsTest, Operations) {
    const Words words = all_sizes(256);
    const auto expect = [&](auto operation) {
        expect_equal<TypeParam::value>([&](auto n) { return in_lanes<n>(words, operation); });
    };
    expect([](auto x) { return x + (x << 3); });
    expect([](auto x) { return x - (x >> 1) * x; });
    expect([](auto x) { return abs(x); });
    expect([](auto x) { return min(x, x * x) ^ max(x, x << 1); });
    expect([](auto x) { return min(x.template as<u32>(), (x * x).template as<u32>()); });
    expect([](auto x) { return select(x < x * x, x, x & (x << 2)) | (x == x * x); });
    expect([](auto x) { return leading_zeros(x.template as<u32>()); });
    expect([](auto x) { return x.template as<u32>() >> (x.template as<u32>() >> 27); });
    expect([](auto x) { return product<31>(x, x << 5); });
    expect([](auto x) { return product<16>(x >> 16, x >> 8); });
    expect([](auto x) { return rounded_product_q31(x, x << 7); });
    expect([](auto x) { return rounded_product_q31(x, decltype(x)::all(1 << 30)); });  // halves
    expect([](auto x) { return look_up(TAVIK_SLW, x.template as<u32>() >> 22); });
    expect([](auto x) { return look_up_bytes(tables::pow34_scale_low, x.template as<u32>()); });
    expect([](auto x) { return look_up_bytes(tables::pow34_dropped_bits, x.template as<u32>()); });
    expect([](auto x) {
        WideLanes<sizeof x / 4> sums;
        sums.add_product(x, x << 1);
        sums.add_product(x, x * x);
        return sums.template shifted_down<24>();
    });
}

// Results that take all lanes together, in blocks of eight words.
TYPED_TEST(KernelsTest, OperationsAcrossLanes) {
    const Words words = all_sizes(256);
    expect_equal<TypeParam::value>([&](auto n) {
        u32 total = 0;
        i64 squares = 0;
        i32 most = 0;
        for (std::size_t i = 0; i < words.size(); i += n) {
            const auto x = I32<n>::load(&words[i]);
            WideTotal<n> square;
            square.add_product(x, x);
            total += static_cast<u32>(sum_of_lanes(x));
            most = std::max(most, largest_lane(x));
            squares = wrap_add(squares, square.total());
        }
        return std::tuple(total, most, squares);
    });
    expect_equal<TypeParam::value>([&](auto n) {  // pairs go to their places, and back
        Words result(words.size());
        for (std::size_t i = 0; i < words.size(); i += 2 * n) {
            const auto pairs = load_pairs<n>(&words[i]);
            store_pairs(&result[i], Pairs<n>{pairs.second, pairs.first});
        }
        return result;
    });
    constexpr u32 n = TypeParam::value;
    std::array<I32<n>, n> rows;
    for (u32 i = 0; i < n; ++i) rows[i] = I32<n>::load(&words[n * i]);
    EXPECT_EQ(reversed(rows[0])[1], words[n - 2]);
    EXPECT_EQ(without_first(rows[0], rows[1])[0], words[1]);
    EXPECT_EQ(without_first(rows[0], rows[1])[n - 1], words[n]);
    transpose(rows);
    for (u32 i = 0; i < n; ++i) {
        for (u32 lane = 0; lane < n; ++lane) EXPECT_EQ(rows[i][lane], words[n * lane + i]);
    }
}

TYPED_TEST(KernelsTest, Staging) {
    const Words words = all_sizes(1024);
    std::vector<i16> pcm;
    for (const i32 word : words) pcm.insert(pcm.end(), {static_cast<i16>(word), static_cast<i16>(word >> 16)});
    expect_equal<TypeParam::value>([&](auto n) {
        Words copy(1024), mono(1024), left(1024), right(1024);
        copy_frame<n>(words.data(), copy.data());
        read_mono<n>(pcm.data(), 1016, mono.data());
        read_stereo<n>(pcm.data(), 1016, left.data(), right.data());
        return std::tuple(copy, mono, left, right);
    });
    expect_equal<TypeParam::value>([&](auto n) {
        Words peaks(subblocks);
        measure_peaks<n>(std::span<const i32, 1024>(words), std::span<i32, subblocks>(peaks));
        return peaks;
    });
}

// The transform in blocks of lanes and the one that goes value by value share the butterflies, not the order of the
// work.
TYPED_TEST(KernelsTest, FftIsTheOneThatGoesValueByValue) {
    for (const u32 n : {64u, 512u}) {
        constexpr u32 lanes = TypeParam::value;
        if (n < 16 * lanes) continue;
        Words re = random_words(n, 20), im = random_words(n, 20, 2), z(2 * n), out(2 * n), expected(2 * n);
        const auto fill = [&](Words &blocks) {
            for (u32 k = 0; k < n; ++k) {
                blocks[k / lanes * 2 * lanes + k % lanes] = re[k];
                blocks[k / lanes * 2 * lanes + lanes + k % lanes] = im[k];
            }
        };
        fill(z);
        fft(ComplexBlocks<lanes>{z.data()}, ComplexBlocks<lanes>{out.data()}, n);
        fft(re, im);
        fill(expected);
        EXPECT_EQ(out, expected);
    }
}

// Of samples of 16 bits; a short block has room for four lanes.
TYPED_TEST(KernelsTest, Mdct) {
    Words samples = random_words(2048, 15);
    for (std::size_t i = 0; i < 600; ++i) samples[i + 700] = i % 7 < 3 ? 32767 : -32768;
    expect_equal<TypeParam::value>([&](auto n) {
        Words spectrum(1024), scratch(1024);
        windowed_mdct<n>(samples.data(), {TAVIK_SLW, TAVIK_SLW}, spectrum.data(), scratch.data(), 1024);
        return spectrum;
    });
    expect_equal<std::min(TypeParam::value, 4u)>([&](auto n) {
        Words spectrum(128), scratch(128);
        windowed_mdct<n>(&samples[800], {TAVIK_SSW, TAVIK_SSW}, spectrum.data(), scratch.data(), 128);
        return spectrum;
    });
}

TYPED_TEST(KernelsTest, MidSide) {
    const Words left = all_sizes(1024), right = random_words(1024, 31, 2);
    const std::array<u32, 6> offsets = {4, 8, 20, 28, 64, 100};
    expect_equal<TypeParam::value>([&](auto n) {
        std::vector<i32> results;
        std::array<BandSums, 5> sums;
        band_sums<n>(ConstSpectrum(left), ConstSpectrum(right), offsets.data(), sums);
        for (const BandSums &sum : sums) results.insert(results.end(), {sum.both, sum.side});
        for (const u32 lines : {0u, 4u, 8u, 60u}) {
            Words mid = left, side = right;
            to_mid_side<n>(std::span(mid).first(lines), std::span(side).first(lines));
            results.insert(results.end(), mid.begin(), mid.begin() + 64);
            results.insert(results.end(), side.begin(), side.begin() + 64);
        }
        return results;
    });
}

TYPED_TEST(KernelsTest, ThreeQuarterPowers) {
    Words lines = random_words(4096, 24);
    for (u32 i = 0; i < 2048; ++i) lines[i] = static_cast<i32>(i) - 1024;  // and bands of small ones
    lines[4095] = std::numeric_limits<i32>::min();
    lines[0] = 8192;  // the first that is not looked up, in a band of smaller ones
    lines[4094] = 2047;
    expect_equal<TypeParam::value>([&](auto n) {
        std::vector<u32> results(4096);
        for (u32 begin = 0; begin < 4096; begin += 32) {
            for (const u32 width : {4u, 12u, 16u}) {
                u32 *out = &results[begin + width - 4];
                const u32 peak = raise_to_three_quarters<n>(&lines[begin + width - 4], width, out);
                EXPECT_EQ(peak, *std::max_element(out, out + width));
                EXPECT_EQ(peak, (largest_value<n>({out, width})));
            }
        }
        return results;
    });
    for (const i32 line : lines) {
        constexpr u32 n = TypeParam::value;
        const u32 a = std::min(magnitude(line), (1u << 23) - 1);
        ASSERT_EQ(pow34_in_lanes(U32<n>::all(a))[n - 1], pow34(a)) << a;
    }
}

TYPED_TEST(KernelsTest, LinearPrediction) {
    for (const int bits : {1, 8, 12, 14, 17, 23}) {
        for (const std::size_t lines : {0u, 1u, 5u, 12u, 13u, 40u, 199u, 456u}) {
            const Words x = random_words(lines, bits);
            const auto lag_sums = [&](auto n) {
                std::vector<i64> r(tns_lags), wide(tns_lags);
                autocorrelation<n>(x, std::span<i64, tns_lags>(r));
                sum_lags<WideSum<n>>(x, std::span<i64, tns_lags>(wide));
                EXPECT_EQ(r, wide);
                return r;
            };
            expect_equal<TypeParam::value>(lag_sums);
            const std::vector<i64> r = lag_sums(NumberOfLanes<1>());
            expect_equal<4>([&](auto n) { return prediction_gain_is_low<n>(std::span<const i64, tns_lags>(r)); });
            expect_equal<TypeParam::value>([&](auto n) {
                Words filtered = x;
                const Words c_q24 = random_words(12, 27, 3);
                shaping_filter<n>(filtered, std::span<const i32, 12>(c_q24));
                return filtered;
            });
        }
    }
}

}  // namespace
