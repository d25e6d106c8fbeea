// Streams of known bytes: SHA-256 of whole streams over many configurations. Two lists: inputs from files, and inputs
// synthesised with integers. A digest changes only with a commit that says why.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "support/golden_streams.h"
#include "support/sha256.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

const std::filesystem::path data_directory = TAVIK_TEST_DATA_DIR;

std::vector<std::int16_t> read_pcm(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    std::vector<std::int16_t> pcm(bytes.size() / 2);
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        const auto low = static_cast<unsigned char>(bytes[2 * i]);
        const auto high = static_cast<unsigned char>(bytes[2 * i + 1]);
        pcm[i] = static_cast<std::int16_t>(high << 8 | low);
    }
    return pcm;
}

std::vector<std::string> split(const std::string &line, char separator) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, separator);) fields.push_back(field);
    return fields;
}

std::vector<std::vector<std::string>> read_table(const std::filesystem::path &path, char separator) {
    std::ifstream file(path);
    std::vector<std::vector<std::string>> rows;
    std::string line;
    std::getline(file, line);  // column names
    while (std::getline(file, line)) rows.push_back(split(line, separator));
    return rows;
}

// Columns: stream, input, sample_rate, channel_mode, bit_rate, header_type, constant_rate, emit_priming_frame,
// tns_disable, home, original_copy, copyright_id, frames, bytes, sha256.
EncoderConfig config_of(const std::vector<std::string> &row) {
    const auto number = [&](std::size_t column) { return static_cast<std::uint32_t>(std::stoul(row[column])); };
    EncoderConfig config{number(3), number(2), number(4), number(5),  number(6),
                         number(7), number(8), number(9), number(10), row[11].empty() ? 0u : 1u,
                         {}};
    for (std::size_t i = 0; i < row[11].size() / 2; ++i) {
        config.copyright_id[i] = static_cast<std::uint8_t>(std::stoul(row[11].substr(2 * i, 2), nullptr, 16));
    }
    return config;
}

TEST(ReferenceStreams, AllDigests) {
    const auto rows = read_table(data_directory / "reference" / "streams.csv", ',');
    ASSERT_EQ(rows.size(), 28u);
    for (const auto &row : rows) {
        const EncoderConfig config = config_of(row);
        const EncodedStream stream = encode_stream(config, read_pcm(data_directory / "reference" / (row[1] + ".raw")));
        EXPECT_EQ(std::to_string(stream.frames.size()), row[12]) << "stream " << row[0];
        EXPECT_EQ(std::to_string(stream.bytes().size()), row[13]) << "stream " << row[0];
        EXPECT_EQ(sha256_hex(stream.bytes()), row[14]) << "stream " << row[0];
        EXPECT_NO_THROW(read_stream(config, stream)) << "stream " << row[0];
    }
}

TEST(GoldenStreams, AllDigests) {
    std::map<std::string, std::string> expected;
    for (const auto &row : read_table(data_directory / "golden_digests.txt", ' ')) expected[row[0]] = row[1];
    const std::vector<GoldenStream> streams = golden_streams();
    EXPECT_EQ(streams.size(), expected.size());
    for (const GoldenStream &golden : streams) {
        EXPECT_EQ(golden_digest(golden), expected[golden.name]) << golden.name;
    }
}

}  // namespace
