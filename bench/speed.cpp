// The program tavik_speed: encodes clips from memory and tells how fast, as multiples of real time, beside FFmpeg's own
// AAC encoder and decoders of what was encoded if those are asked for; or lets qemu's plugin icount count the
// instructions. Only the calls that encode or decode are inside what is measured.
#include <dlfcn.h>
#include <sched.h>
#include <tavik.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "clip.h"
#include "pass.h"

namespace {

using namespace tavik_bench;

struct Options {
    std::vector<std::string> files;
    unsigned sample_rate = 44100;
    unsigned channels = 2;
    std::vector<unsigned> bit_rates{128000};  // of all channels together
    unsigned repetitions = 5;
    bool with_peer = false;
    bool with_decoders = false;
    bool count_instructions = false;
    bool find_dearest_call = false;
    bool two_mono = false;
};

// A clip that gives no bytes is a fault of the benchmark or of the codec, not a result.
void require_output(std::size_t bytes) {
    if (bytes == 0) throw std::runtime_error("nothing was encoded or decoded");
}

// ---- Instructions ----

// See icount/icount.c.
constexpr long mark = 0x7A61;
constexpr long mark_start = 1;
constexpr long mark_stop = 2;
constexpr long mark_part = 3;

// Where the library is loaded.
const void *library_origin() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&TAVIK_Encode), &info) == 0) throw std::runtime_error("no library");
    return info.dli_fbase;
}

void count_instructions(const std::vector<Clip> &clips, unsigned bit_rate, const Options &options) {
    TavikOptions tavik{options.two_mono};
    if (options.find_dearest_call) tavik.after_call = [] { syscall(mark, mark_part, 0L); };
    for (const Clip &clip : clips) {
        const auto pass = make_tavik_pass(clip, bit_rate, tavik);
        std::printf("clip %s bit_rate %u seconds %.3f\n", clip.name.c_str(), bit_rate, clip.seconds());
        std::fflush(stdout);
        syscall(mark, mark_start, library_origin());
        const std::size_t bytes = pass->run();
        syscall(mark, mark_stop, static_cast<long>(clip.seconds() * 1e6));
        require_output(bytes);
    }
}

// ---- Time ----

// The processor time of this thread, so that waiting for other programs does not count.
double processor_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Keeps the thread on the core that it is on, so that all that is compared runs on the same one.
void stay_on_core() {
    const int core = sched_getcpu();
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<std::size_t>(core), &cores);
    if (core < 0 || sched_setaffinity(0, sizeof(cores), &cores) != 0) std::perror("cannot stay on one core");
}

// The times of one codec with one clip, by repetition; those of several clips add up.
struct Times {
    std::vector<double> seconds;
    double sum_of_medians = 0;
    std::size_t bytes = 0;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void time_pass(Pass &pass, Times &times) {
    const double start = processor_seconds();
    times.bytes = pass.run();
    times.seconds.push_back(processor_seconds() - start);
    require_output(times.bytes);
    times.sum_of_medians = median(times.seconds);
}

void add(Times &total, const Times &times) {
    total.seconds.resize(times.seconds.size());
    for (std::size_t i = 0; i < times.seconds.size(); ++i) total.seconds[i] += times.seconds[i];
    total.sum_of_medians += times.sum_of_medians;
    total.bytes += times.bytes;
}

std::vector<Peer> wanted_peers([[maybe_unused]] const Options &options) {
    std::vector<Peer> peers;
    if (options.with_peer) {
#ifdef TAVIK_BENCH_LIBAVCODEC
        peers.push_back({"ffmpeg-encoder", make_ffmpeg_encoder});
#else
        throw std::runtime_error("built without libavcodec, so there is no peer");
#endif
    }
    if (options.with_decoders) {
#if defined(TAVIK_BENCH_LIBAVCODEC) && defined(TAVIK_BENCH_LIBFAAD)
        peers.push_back({"ffmpeg-decoder", make_ffmpeg_decoder});
        peers.push_back({"faad-decoder", make_faad_decoder});
#else
        throw std::runtime_error("built without libavcodec or libfaad, so there are no decoders");
#endif
    }
    return peers;
}

void print_speed(const std::string &name, double seconds, const Times &times) {
    std::printf("  %s %.1f x %zu bytes", name.c_str(), seconds / times.sum_of_medians, times.bytes);
}

// A peer's time in units of Tavik's, followed by the smallest and the largest ratio of a single repetition.
void print_ratio(const Times &tavik, const Times &peer) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < peer.seconds.size(); ++i) ratios.push_back(peer.seconds[i] / tavik.seconds[i]);
    const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
    std::printf(" ratio %.3f %.3f ... %.3f", peer.sum_of_medians / tavik.sum_of_medians, *least, *most);
}

// Tavik's times and those of the peers, in their order.
struct Comparison {
    Times tavik;
    std::vector<Times> peers;
};

// One line.
void print(unsigned bit_rate, const std::string &clip, double seconds, const std::vector<Peer> &peers,
           const Comparison &times) {
    std::printf("%7u  %-24s", bit_rate, clip.c_str());
    print_speed("tavik", seconds, times.tavik);
    for (std::size_t i = 0; i < peers.size(); ++i) {
        print_speed(peers[i].name, seconds, times.peers[i]);
        print_ratio(times.tavik, times.peers[i]);
    }
    std::printf("\n");
    std::fflush(stdout);
}

// Tavik and its peers in turns.
Comparison compare(const Clip &clip, unsigned bit_rate, const std::vector<Peer> &peers, const Options &options) {
    const Stream stream = options.with_decoders ? encode_with_tavik(clip, bit_rate, {options.two_mono}) : Stream();
    Comparison times{{}, std::vector<Times>(peers.size())};
    for (unsigned repetition = 0; repetition < options.repetitions; ++repetition) {
        time_pass(*make_tavik_pass(clip, bit_rate, {options.two_mono}), times.tavik);
        for (std::size_t i = 0; i < peers.size(); ++i) {
            time_pass(*peers[i].make_pass(clip, stream, bit_rate), times.peers[i]);
        }
    }
    return times;
}

void measure_speed(const std::vector<Clip> &clips, unsigned bit_rate, const Options &options) {
    const std::vector<Peer> peers = wanted_peers(options);
    Comparison all{{}, std::vector<Times>(peers.size())};
    double seconds = 0;
    for (const Clip &clip : clips) {
        const Comparison times = compare(clip, bit_rate, peers, options);
        print(bit_rate, clip.name, clip.seconds(), peers, times);
        add(all.tavik, times.tavik);
        for (std::size_t i = 0; i < peers.size(); ++i) add(all.peers[i], times.peers[i]);
        seconds += clip.seconds();
    }
    print(bit_rate, "all", seconds, peers, all);
}

// ---- Command line ----

void describe(CLI::App &app, Options &options) {
    app.add_option("FILES", options.files, "Raw 16-bit PCM, interleaved [ten synthetic seconds]")
        ->option_text(" ")
        ->check(CLI::ExistingFile);
    app.add_option("--rate", options.sample_rate, "Sampling rate of the files in Hz")->capture_default_str();
    app.add_option("--channels", options.channels, "Channels of the files")
        ->capture_default_str()
        ->check(CLI::Range(1, 2));
    app.add_option("-b,--bitrate", options.bit_rates, "Bit/s of all channels together, one or several")
        ->capture_default_str()
        ->delimiter(',')
        ->allow_extra_args(false);
    app.add_option("-n,--repetitions", options.repetitions, "Runs of each clip")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_flag("--peer", options.with_peer, "Compare with FFmpeg's own encoder, its fast coder and one thread");
    app.add_flag("--decoders", options.with_decoders,
                 "Compare with FFmpeg's decoder, one thread, and faad's, of the streams that Tavik makes");
    app.add_flag("--count-instructions", options.count_instructions,
                 "Mark each run for qemu's plugin icount instead of taking the time");
    app.add_flag("--dearest-call", options.find_dearest_call, "Mark each call too, and learn of the dearest one");
    app.add_flag("--two-mono", options.two_mono, "Code the two channels independently");
}

std::vector<Clip> load_clips(const Options &options) {
    std::vector<Clip> clips;
    for (const std::string &file : options.files) {
        clips.push_back(read_clip(file, options.sample_rate, options.channels));
    }
    if (clips.empty()) clips.push_back(synthetic_clip(options.sample_rate, options.channels));
    return clips;
}

void measure(const Options &options) {
    const std::vector<Clip> clips = load_clips(options);
    stay_on_core();
    for (const unsigned bit_rate : options.bit_rates) {
        if (options.count_instructions) {
            count_instructions(clips, bit_rate, options);
        } else {
            measure_speed(clips, bit_rate, options);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    Options options;
    CLI::App app("Encodes clips from memory and tells how many times faster than real time.");
    describe(app, options);
    CLI11_PARSE(app, argc, argv);
    try {
        measure(options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "tavik_speed: %s\n", error.what());
        return 1;
    }
    return 0;
}
