#include "support/golden_streams.h"

#include "support/sha256.h"
#include "support/stream_harness.h"

namespace tavik_test {
namespace {

std::string name_of(const EncoderConfig &config, SignalKind signal) {
    static constexpr const char *modes[] = {"mono", "stereo", "two-mono"};
    static constexpr const char *headers[] = {"adts", "adif", "raw"};
    return std::string(name(signal)) + '/' + std::to_string(config.sample_rate) + '/' + modes[config.channel_mode] +
           '/' + std::to_string(config.bit_rate) + '/' + headers[config.header_type] +
           (config.constant_rate == 1 ? "/cbr" : "/vbr") + (config.emit_priming_frame == 1 ? "/priming" : "") +
           (config.tns_disable == 1 ? "/no-tns" : "");
}

}  // namespace

std::vector<GoldenStream> golden_streams() {
    std::vector<GoldenStream> streams;
    std::uint32_t i = 0;  // walks through framings, options and signals while rate, mode and bit rate vary
    for (const std::uint32_t rate : sample_rates) {
        for (std::uint32_t mode = 0; mode < 3; ++mode) {
            const std::uint32_t usual = rate * 3 / 2;  // about 64 kbit/s at 44.1 kHz
            for (const std::uint32_t bit_rate : {8000u, usual, usual * 2, 6 * rate}) {
                for (std::uint32_t constant_rate = 0; constant_rate < 2; ++constant_rate, ++i) {
                    const SignalKind signal = all_signal_kinds[(i + i / 8) % all_signal_kinds.size()];
                    const EncoderConfig config{mode,  rate, bit_rate, i % 3, constant_rate, i / 2 % 2, i % 5 == 0,
                                               i % 2, 0,    0,        {}};
                    streams.push_back({name_of(config, signal), config, signal});
                }
            }
        }
    }
    return streams;
}

std::string golden_digest(const GoldenStream &golden) {
    constexpr std::size_t samples = 12 * 1024 + 345;
    const auto pcm =
        make_signal(golden.signal, channel_count(golden.config), samples, golden.config.sample_rate, 20261122);
    const EncodedStream stream = encode_stream(golden.config, pcm);
    read_stream(golden.config, stream);
    return sha256_hex(stream.bytes());
}

}  // namespace tavik_test
