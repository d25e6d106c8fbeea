// The rate loop on the spectrum that an encoded frame leaves in its context.
#include "quant/rate_loop.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/full_count.h"
#include "support/signals.h"

namespace {

using namespace tavik;

struct Loop {
    EncoderContext context;
    EncoderState &state = state_of(context);
    CodingBlock &block = state.coding;
    std::array<u32, band_array_size> codebooks{};
    std::array<i32, frame_length> quantized{};

    Loop() {
        const EncoderConfig config{TAVIK_MODE_MONO, 44100, 64000, 0, 0, 1, 0, 0, 0, 0, {}};
        EXPECT_EQ(TAVIK_Init(&context, &config), 0);
        const auto pcm = tavik_test::make_signal(tavik_test::SignalKind::music, 1, 3 * frame_length, 44100, 0);
        std::array<u8, TAVIK_MAX_FRAME_BYTES> output;
        for (std::size_t frame = 0; frame < 3; ++frame) {
            u32 samples = frame_length, bytes = 0;
            TAVIK_Encode(&context, &pcm[frame * frame_length], &samples, output.data(), &bytes);
        }
    }

    // Returns global_gain.
    u32 quantize(i32 bits_target) {
        block.bits_target[0] = bits_target;
        block.bits_tolerance[0] = bits_target / 10;
        codebooks.fill(0);
        u32 global_gain = 0;
        TAVIK_Quantize(&state.coding, state.spectrum[0].data(), &global_gain, block.band_sf_offset[0].data(),
                       codebooks.data(), quantized.data(), state.pow34_spectrum[0].data(), 0);
        return global_gain;
    }

    u32 recount() {
        std::array<u8, band_array_size> recounted{};
        const u32 bits = tavik_test::full_count(
            block, block.common_sf[0],
            {first_half(state.spectrum[0]), state.pow34_spectrum[0], block.band_sf_offset[0], recounted, quantized}, 0);
        std::ranges::copy(recounted, codebooks.begin());
        return bits;
    }

    bool is_silent() const {
        return std::ranges::count(codebooks, 0u) == band_array_size && std::ranges::count(quantized, 0) == frame_length;
    }
};

TEST(RateLoop, MeetsTheTargetOrQuantizesToZero) {
    Loop loop;
    for (const i32 target : {6000, 1500, 300, 148}) {
        const u32 global_gain = loop.quantize(target);
        EXPECT_EQ(global_gain, 100 + loop.block.common_sf[0] + loop.block.band_sf_offset[0][0]);
        EXPECT_FALSE(loop.is_silent()) << target;
        const auto values = loop.quantized;
        const auto codebooks = loop.codebooks;
        const auto bits = static_cast<i32>(loop.recount());
        EXPECT_LE(bits, target);
        EXPECT_GE(bits, target * 3 / 4);
        EXPECT_EQ(loop.quantized, values);
        EXPECT_EQ(loop.codebooks, codebooks);
    }
    for (const i32 target : {13, 0, -500}) {
        loop.quantize(target);
        EXPECT_TRUE(loop.is_silent()) << target;
    }
}

TEST(RateLoop, SilentChannelIsNotSearched) {
    Loop loop;
    loop.block.has_signal[0] = 0;
    EXPECT_EQ(loop.quantize(1500), 100u);
    EXPECT_EQ(loop.block.common_sf[0], 0u);
    EXPECT_TRUE(loop.is_silent());
}

}  // namespace
