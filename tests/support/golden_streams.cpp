#include "support/golden_streams.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include "support/checked_encoder.h"
#include "support/require.h"

namespace tavik_test {
namespace {

const std::string directory = TAVIK_TEST_DATA_DIR "/reference/";

std::string name_of(const EncoderConfig &config, SignalKind signal) {
    static constexpr const char *modes[] = {"mono", "stereo", "two-mono"};
    static constexpr const char *headers[] = {"adts", "adif", "raw"};
    return std::string(name(signal)) + '-' + std::to_string(config.sample_rate) + '-' + modes[config.channel_mode] +
           '-' + std::to_string(config.bit_rate) + '-' + headers[config.header_type] +
           (config.constant_rate == 1 ? "-cbr" : "-vbr") + (config.emit_priming_frame == 1 ? "-priming" : "") +
           (config.tns_disable == 1 ? "-no-tns" : "");
}

// One row: stream, input, the fields of the configuration in their order but for the sampling rate, which comes first.
ReferenceStream parse_row(std::string row) {
    std::replace(row.begin(), row.end(), ',', ' ');
    std::istringstream fields(row);
    ReferenceStream stream{};
    EncoderConfig &config = stream.config;
    std::string number, input, copyright_id;
    fields >> number >> input >> config.sample_rate >> config.channel_mode >> config.bit_rate >> config.header_type >>
        config.constant_rate >> config.emit_priming_frame >> config.tns_disable >> config.home >> config.original_copy;
    require(!fields.fail(), "wrong row: ", row);
    fields >> copyright_id;
    config.copyright_id_present = copyright_id.empty() ? 0 : 1;
    for (std::size_t i = 0; i < copyright_id.size() / 2; ++i) {
        config.copyright_id[i] = static_cast<std::uint8_t>(std::stoul(copyright_id.substr(2 * i, 2), nullptr, 16));
    }
    stream.name = "reference-" + number;
    stream.pcm = read_recording(input);
    return stream;
}

}  // namespace

std::vector<std::int16_t> GoldenStream::pcm(std::size_t samples_per_channel) const {
    return make_signal(signal, channel_count(config), samples_per_channel, config.sample_rate, 20261122);
}

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

std::vector<ReferenceStream> reference_streams() {
    std::ifstream file(directory + "streams.csv");
    std::vector<ReferenceStream> streams;
    std::string row;
    std::getline(file, row);  // column names
    while (std::getline(file, row)) streams.push_back(parse_row(row));
    require(!streams.empty(), "no rows in ", directory, "streams.csv");
    return streams;
}

std::vector<std::int16_t> read_recording(const std::string &name) {
    std::ifstream file(directory + name + ".raw", std::ios::binary);
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
    require(!bytes.empty(), "cannot read the recording ", name);
    std::vector<std::int16_t> pcm;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        pcm.push_back(static_cast<std::int16_t>(bytes[i + 1] << 8 | bytes[i]));
    }
    return pcm;
}

}  // namespace tavik_test
