// Times of the stages, each through the public header, on data that they meet in a stereo stream of 128 kbit/s at
// 44.1 kHz. Every iteration takes the next of a few frames. Where a stage works in place, a copy of its input is in the
// time: 4 KiB, some 50 ns.
#include <benchmark/benchmark.h>
#include <tavik.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <vector>

#include "clip.h"
#include "common/encoder_context.h"

namespace {

using namespace tavik;

constexpr u32 rate_index = 4;  // 44.1 kHz
constexpr u32 bit_rate = 64000;
constexpr std::size_t first_frame = 40;
constexpr std::size_t frame_count = 32;

using StereoSamples = PerChannel<std::array<i32, history_length>>;
using Quantized = std::array<i32, frame_length>;
using Codebooks = std::array<u32, band_array_size>;

// A frame as it goes through the encoder.
struct Frame {
    StereoSamples history;        // the block that is coded
    StereoSamples long_spectrum;  // of that block under a long window, low-passed: what the tools get
    EncoderState coded;           // behind the frame
    PerChannel<u32> start_sf;     // common_sf in front of the rate loop
};

// Copies of contexts hold pointers into the original.
void repair_pointers(EncoderState &state) {
    CodingBlock &block = state.coding;
    for (u32 channel = 0; channel < max_channels; ++channel) {
        block.sfb_offset_start[channel] = block.sfb_offset[channel].data();
    }
    block.adts_header.copyright_id = block.adif_header.copyright_id;
}

EncoderContext start_stream() {
    EncoderConfig config{};
    config.channel_mode = TAVIK_MODE_STEREO;
    config.sample_rate = 44100;
    config.bit_rate = bit_rate;
    EncoderContext context;
    if (TAVIK_Init(&context, &config) != 0) throw std::runtime_error("configuration refused");
    repair_pointers(state_of(context));
    return context;
}

const tavik_bench::Clip &clip() {
    static const tavik_bench::Clip clip = tavik_bench::synthetic_clip(44100, 2);
    return clip;
}

const i16 *pcm_of_frame(std::size_t number) { return clip().pcm.data() + number * frame_length * max_channels; }

void encode_frame(EncoderContext &context, std::size_t number, std::array<u8, TAVIK_MAX_FRAME_BYTES> &output) {
    u32 samples = frame_length;
    u32 bytes = 0;
    TAVIK_Encode(&context, pcm_of_frame(number), &samples, output.data(), &bytes);
}

void fill_history(Frame &frame, std::size_t number) {
    const i16 *pcm = pcm_of_frame(number);
    for (u32 i = 0; i < history_length; ++i) {
        for (u32 channel = 0; channel < max_channels; ++channel) {
            frame.history[channel][i] = pcm[i * max_channels + channel];
        }
    }
}

void transform(Frame &frame) {
    std::array<i32, frame_length> scratch;
    for (i32 channel = 0; channel < 2; ++channel) {
        auto &spectrum = frame.long_spectrum[static_cast<u32>(channel)];
        TAVIK_FilterBank(frame.history[0].data(), spectrum.data(), 0, scratch.data(), channel, 0);
        TAVIK_LowPass(spectrum.data(), frame.coded.coding.spectral_limit);
    }
}

std::vector<Frame> make_frames() {
    EncoderContext context = start_stream();
    std::array<u8, TAVIK_MAX_FRAME_BYTES> output{};
    std::vector<Frame> frames(frame_count);
    for (std::size_t number = 0; number < first_frame; ++number) encode_frame(context, number, output);
    for (std::size_t i = 0; i < frame_count; ++i) {
        Frame &frame = frames[i];
        frame.start_sf = state_of(context).coding.common_sf;
        encode_frame(context, first_frame + i, output);
        frame.coded = state_of(context);
        repair_pointers(frame.coded);
        fill_history(frame, first_frame + i - 2);  // the newest frame is the lookahead
        transform(frame);
    }
    return frames;
}

// The next frame at every call, round and round.
class Frames {
 public:
    Frame &next() { return frames_[next_++ % frames_.size()]; }
    std::vector<Frame> &all() { return frames_; }

 private:
    std::vector<Frame> frames_ = make_frames();
    std::size_t next_ = 0;
};

// ---- Input and windows ----

void staging_and_peaks(benchmark::State &state) {
    // The first call of a stream fills the delay line and delivers nothing: staging and attack analysis are all it
    // does.
    EncoderContext context = start_stream();
    std::array<u8, TAVIK_MAX_FRAME_BYTES> output{};
    for (auto _ : state) {
        state_of(context).coding.stream_state = 0;
        encode_frame(context, first_frame, output);
    }
}
BENCHMARK(staging_and_peaks);

void peaks(benchmark::State &state) {
    Frames frames;
    std::array<i32, 8> peaks{};
    for (auto _ : state) {
        TAVIK_CalcAttack(frames.next().history[0].data(), peaks.data());
        benchmark::DoNotOptimize(peaks);
    }
}
BENCHMARK(peaks);

void window_decision(benchmark::State &state) {
    Frames frames;
    u32 short_run_active = 0;
    u32 attack_index = 0;
    TavikAttackDetectorState detector{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(TAVIK_BlockSwitch(rate_index, frames.next().coded.coding.subblock_peak[0].data(),
                                                   &short_run_active, &attack_index, &detector));
    }
}
BENCHMARK(window_decision);

// ---- Transforms ----

void filter_bank(benchmark::State &state) {
    static constexpr std::array names{"ONLY_LONG", "LONG_START", "EIGHT_SHORT", "LONG_STOP"};
    const auto sequence = static_cast<i32>(state.range(0));
    state.SetLabel(names.at(static_cast<std::size_t>(sequence)));
    Frames frames;
    std::array<i32, history_length> spectrum{};
    std::array<i32, frame_length> scratch{};
    for (auto _ : state) {
        TAVIK_FilterBank(frames.next().history[0].data(), spectrum.data(), sequence, scratch.data(), 0, 0);
        benchmark::DoNotOptimize(spectrum);
    }
}
BENCHMARK(filter_bank)->DenseRange(0, 3);

void fft(benchmark::State &state) {
    const auto length = static_cast<std::size_t>(state.range(0));
    Frames frames;
    std::array<i32, 512> re{};
    std::array<i32, 512> im{};
    for (auto _ : state) {
        const Frame &frame = frames.next();
        std::copy_n(frame.history[0].begin(), length, re.begin());
        std::copy_n(frame.history[1].begin(), length, im.begin());
        TAVIK_ZOLF_srfft(re.data(), im.data(), static_cast<i32>(length));
        benchmark::DoNotOptimize(re);
        benchmark::DoNotOptimize(im);
    }
}
BENCHMARK(fft)->Arg(512)->Arg(64);

// ---- Tools ----

void autocorrelation(benchmark::State &state) {
    constexpr u32 lines = 672;  // what temporal noise shaping covers
    Frames frames;
    std::array<i64, 13> r{};
    for (auto _ : state) {
        TAVIK_Autocorrelation(lines, frame_length - lines, frames.next().long_spectrum[0].data(), r.data());
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(autocorrelation);

void temporal_noise_shaping(benchmark::State &state) {
    Frames frames;
    std::array<i32, history_length> spectrum{};
    std::size_t filtered = 0;
    for (auto _ : state) {
        const Frame &frame = frames.next();
        std::copy_n(frame.long_spectrum[0].begin(), frame_length, spectrum.begin());
        TavikTnsData tns{};
        TAVIK_TemporalNoiseShaping(&tns, spectrum.data(), rate_index, TAVIK_NumSwbLongWindow[rate_index],
                                   frame.coded.coding.long_band_count);
        filtered += tns.tns_data_present;
        benchmark::DoNotOptimize(spectrum);
    }
    state.counters["filtered"] = benchmark::Counter(static_cast<double>(filtered), benchmark::Counter::kAvgIterations);
}
BENCHMARK(temporal_noise_shaping);

void mid_side(benchmark::State &state) {
    Frames frames;
    const auto spectra = std::make_unique<StereoSamples>();
    std::array<u32, max_bands> ms_used{};
    for (auto _ : state) {
        const Frame &frame = frames.next();
        for (u32 channel = 0; channel < max_channels; ++channel) {
            std::copy_n(frame.long_spectrum[channel].begin(), frame_length, (*spectra)[channel].begin());
        }
        auto mean = static_cast<i32>(frame.coded.coding.mean_channel_bits);
        std::array<i32, max_channels> targets{mean, mean};
        u32 mask = 0;
        TAVIK_MSStereo((*spectra)[0].data(), rate_index, ms_used.data(), targets.data(), &mask,
                       frame.coded.coding.long_band_count, 0);
        benchmark::DoNotOptimize(*spectra);
    }
}
BENCHMARK(mid_side);

// ---- Quantization and bitstream, of channel 0 ----

void scale_factors(benchmark::State &state) {
    Frames frames;
    for (auto _ : state) {
        EncoderState &coded = frames.next().coded;
        TAVIK_PreQuant(&coded.coding, coded.pow34_spectrum[0].data(), coded.spectrum[0].data(),
                       coded.coding.band_sf_offset[0].data(), 0);
        benchmark::DoNotOptimize(coded);
    }
}
BENCHMARK(scale_factors);

u32 quantize(EncoderState &coded, Codebooks &codebooks, Quantized &quantized) {
    u32 global_gain = 0;
    codebooks.fill(0);
    TAVIK_Quantize(&coded.coding, coded.spectrum[0].data(), &global_gain, coded.coding.band_sf_offset[0].data(),
                   codebooks.data(), quantized.data(), coded.pow34_spectrum[0].data(), 0);
    return global_gain;
}

// The rate loop ends with its first count when any count will do.
void one_count(benchmark::State &state) {
    Frames frames;
    for (Frame &frame : frames.all()) {
        frame.coded.coding.bits_target[0] = 1 << 24;
        frame.coded.coding.bits_tolerance[0] = 1 << 30;
    }
    Codebooks codebooks{};
    Quantized quantized{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(quantize(frames.next().coded, codebooks, quantized));
        benchmark::DoNotOptimize(quantized);
    }
}
BENCHMARK(one_count);

void rate_loop(benchmark::State &state) {
    Frames frames;
    Codebooks codebooks{};
    Quantized quantized{};
    for (auto _ : state) {
        Frame &frame = frames.next();
        frame.coded.coding.common_sf[0] = frame.start_sf[0];
        benchmark::DoNotOptimize(quantize(frame.coded, codebooks, quantized));
        benchmark::DoNotOptimize(quantized);
    }
}
BENCHMARK(rate_loop);

void channel_stream_writing(benchmark::State &state) {
    struct Channel {
        u32 global_gain;
        Codebooks codebooks;
        Quantized quantized;
    };
    Frames frames;
    std::vector<Channel> channels;
    for (Frame &frame : frames.all()) {
        Channel &channel = channels.emplace_back();
        channel.global_gain = quantize(frame.coded, channel.codebooks, channel.quantized);
    }
    std::array<u8, TAVIK_MAX_FRAME_BYTES> output{};
    std::size_t number = 0;
    for (auto _ : state) {
        const Channel &channel = channels[number++ % channels.size()];
        const EncoderState &coded = frames.next().coded;
        BitWriter writer{0, 0, 0, 8};
        benchmark::DoNotOptimize(TAVIK_WriteICS(&coded.coding, channel.global_gain, channel.codebooks.data(),
                                                coded.coding.band_sf_offset[0].data(), channel.quantized.data(),
                                                coded.spectrum[0].data(), output.data(), &writer,
                                                coded.coding.scale_factor_grouping[0], 0));
        benchmark::DoNotOptimize(output);
    }
}
BENCHMARK(channel_stream_writing);

// ---- Everything ----

void whole_frame(benchmark::State &state) {
    const std::size_t frames = clip().samples_per_channel() / frame_length;
    EncoderContext context = start_stream();
    std::array<u8, TAVIK_MAX_FRAME_BYTES> output{};
    std::size_t number = 0;
    for (auto _ : state) {
        encode_frame(context, number, output);
        number = (number + 1) % frames;
        benchmark::DoNotOptimize(output);
    }
    state.counters["x_real_time"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * frame_length / clip().sample_rate, benchmark::Counter::kIsRate);
}
BENCHMARK(whole_frame);

}  // namespace

BENCHMARK_MAIN();
