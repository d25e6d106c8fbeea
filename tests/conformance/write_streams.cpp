// Writes the streams whose digests are on record to a directory, each to a file of its name.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "support/golden_streams.h"
#include "support/require.h"
#include "support/stream_harness.h"

namespace {

using namespace tavik_test;

// All frames have passed the strict reader.
void write(const std::filesystem::path &path, const EncoderConfig &config, const std::vector<std::int16_t> &pcm) {
    const EncodedStream stream = encode_stream(config, pcm);
    read_stream(config, stream);
    const auto bytes = stream.bytes();
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    require(static_cast<bool>(file.flush()), "cannot write ", path);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " DIRECTORY\n";
        return 2;
    }
    const std::filesystem::path directory = argv[1];
    try {
        for (const auto &stream : reference_streams()) write(directory / stream.name, stream.config, stream.pcm);
        for (const auto &stream : golden_streams()) write(directory / stream.name, stream.config, stream.pcm());
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
