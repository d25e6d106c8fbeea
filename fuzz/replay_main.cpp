// Runs every input of a corpus, and some random ones, through a fuzz target. No check may fail, and the digest of all
// output must be the recorded one, because every build must produce the same output.
// Usage: replay CORPUS_DIRECTORY DIGEST_FILE
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "target.h"

namespace {

std::vector<std::uint8_t> read_file(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::filesystem::path> files_of(const std::filesystem::path &directory) {
    std::set<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) files.insert(entry.path());
    return files;
}

class Replay {
 public:
    void run(std::span<const std::uint8_t> input, const std::string &name) {
        try {
            const tavik_fuzz::Outcome outcome = tavik_fuzz::run_target(input);
            frames_ += outcome.frames;
            output_.add(outcome.output.value());
            ++inputs_;
        } catch (const std::exception &error) {
            std::printf("%s: %s\n", name.c_str(), error.what());
            ++findings_;
        }
    }

    // Prints the result; returns whether it is as expected.
    bool report(std::uint64_t expected_digest) const {
        std::printf("%zu inputs, %" PRIu64 " frames, digest %016" PRIx64 " (expected: %016" PRIx64 "), %zu findings\n",
                    inputs_, frames_, output_.value(), expected_digest, findings_);
        return inputs_ > 0 && findings_ == 0 && output_.value() == expected_digest;
    }

 private:
    tavik_test::Digest output_;
    std::uint64_t frames_ = 0;
    std::size_t inputs_ = 0;
    std::size_t findings_ = 0;
};

int replay(const std::filesystem::path &directory, const std::filesystem::path &digest_file) {
    constexpr unsigned random_inputs = 200;
    Replay replay;
    for (const auto &file : files_of(directory)) replay.run(read_file(file), file);
    std::minstd_rand random;
    std::vector<std::uint8_t> input(256);
    for (unsigned number = 0; number < random_inputs; ++number) {
        for (auto &byte : input) byte = static_cast<std::uint8_t>(random() >> 16);
        replay.run(input, "random input " + std::to_string(number));
    }
    std::ifstream recorded(digest_file);
    std::uint64_t expected_digest = 0;
    recorded >> std::hex >> expected_digest;
    return replay.report(expected_digest) ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s CORPUS_DIRECTORY DIGEST_FILE\n", argv[0]);
        return 2;
    }
    return replay(argv[1], argv[2]);
}
