// Times of whole streams: every sampling rate and channel mode at a low, a usual and the highest bit rate, as multiples
// of real time.
#include <benchmark/benchmark.h>
#include <tavik.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "clip.h"

namespace {

constexpr std::array sample_rates{48000U, 44100U, 32000U, 24000U, 22050U, 16000U, 12000U, 11025U, 8000U};
constexpr std::array mode_names{"mono", "stereo", "two_mono"};  // by channel_mode

// Encodes the clip as often as it takes.
void encode_stream(benchmark::State &state, const EncoderConfig &config) {
    const unsigned channels = config.channel_mode == TAVIK_MODE_MONO ? 1 : 2;
    const auto clip = tavik_bench::synthetic_clip(config.sample_rate, channels);
    const std::size_t frames = clip.samples_per_channel() / TAVIK_FRAME_LENGTH;
    const auto context = std::make_unique<EncoderContext>();
    std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES> output{};
    if (TAVIK_Init(context.get(), &config) != 0) return state.SkipWithError("configuration refused");
    std::size_t number = 0;
    for (auto _ : state) {
        std::uint32_t samples = TAVIK_FRAME_LENGTH;
        std::uint32_t bytes = 0;
        const std::int16_t *pcm = clip.pcm.data() + number * TAVIK_FRAME_LENGTH * channels;
        TAVIK_Encode(context.get(), pcm, &samples, output.data(), &bytes);
        number = (number + 1) % frames;
        benchmark::DoNotOptimize(output);
    }
    state.counters["x_real_time"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * TAVIK_FRAME_LENGTH / config.sample_rate, benchmark::Counter::kIsRate);
}

void register_stream(unsigned mode, unsigned sample_rate, unsigned bit_rate) {
    EncoderConfig config{};
    config.channel_mode = mode;
    config.sample_rate = sample_rate;
    config.bit_rate = bit_rate;
    const std::string name = std::string(mode_names.at(mode)) + "/" + std::to_string(sample_rate) + "_Hz/" +
                             std::to_string(bit_rate) + "_bit_per_s_and_channel";
    benchmark::RegisterBenchmark(name.c_str(), [config](benchmark::State &state) { encode_stream(state, config); });
}

void register_streams() {
    for (unsigned mode = TAVIK_MODE_MONO; mode <= TAVIK_MODE_TWO_MONO; ++mode) {
        for (const unsigned sample_rate : sample_rates) {
            const unsigned usual = sample_rate * 3 / 2;
            for (const unsigned bit_rate : {std::max<unsigned>(TAVIK_MIN_BIT_RATE, sample_rate / 2), usual,
                                            TAVIK_MAX_BIT_RATE_FACTOR * sample_rate}) {
                register_stream(mode, sample_rate, bit_rate);
            }
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    register_streams();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
