#include "support/standard_tables.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavik_test {
namespace {

void require(bool condition, const std::string &message) {
    if (!condition) throw std::runtime_error(message);
}

// The rows of a file behind its heading, with spaces for commas.
std::vector<std::istringstream> read_rows(const std::string &path) {
    std::ifstream file(path);
    std::vector<std::istringstream> rows;
    std::string line;
    require(static_cast<bool>(std::getline(file, line)), "cannot read " + path);
    while (std::getline(file, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        rows.emplace_back(line);
    }
    return rows;
}

std::vector<HuffmanCode> load_codes() {
    std::array<std::vector<Codeword>, scale_factor_codebook> codewords;
    for (auto &row : read_rows(TAVIK_TEST_DATA_DIR "/huffman_codebooks.csv")) {
        std::size_t codebook = 0, index = 0;
        Codeword codeword{};
        row >> codebook >> index >> codeword.length >> std::hex >> codeword.bits;
        require(!row.fail() && index == codewords.at(codebook - 1).size(), "wrong row: " + row.str());
        codewords[codebook - 1].push_back(codeword);
    }
    return {codewords.begin(), codewords.end()};
}

StandardTables load_standard_tables() {
    StandardTables tables{load_codes(), {}};
    for (auto &row : read_rows(TAVIK_TEST_DATA_DIR "/scalefactor_bands.csv")) {
        std::string window;
        std::size_t index = 0, bands = 0;
        row >> window >> index >> bands;
        auto &limits = tables.band_limits[window == "short" ? 1 : 0].at(index);
        limits.assign(std::istream_iterator<unsigned>(row), {});
        require(limits.size() == bands + 1, "wrong row: " + row.str());
    }
    return tables;
}

}  // namespace

// As a binary fraction, a codeword stands for the interval of all sequences that start with it. The intervals of a
// complete prefix code lie side by side from 0 to 1.
HuffmanCode::HuffmanCode(std::vector<Codeword> codewords) : codewords_(std::move(codewords)) {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> intervals;  // begin and end in units of 2^-32
    for (const auto &[length, bits] : codewords_) {
        require(length > 0 && length < 32 && bits >> length == 0, "Huffman codeword of a wrong length");
        index_[1u << length | bits] = static_cast<unsigned>(intervals.size());
        intervals.emplace_back(std::uint64_t{bits} << (32 - length), (std::uint64_t{bits} + 1) << (32 - length));
    }
    std::sort(intervals.begin(), intervals.end());
    std::uint64_t covered = 0;
    for (const auto &[begin, end] : intervals) {
        require(begin == covered, "Huffman code with a gap or with one codeword inside another");
        covered = end;
    }
    require(covered == std::uint64_t{1} << 32, "incomplete Huffman code");
}

unsigned HuffmanCode::decode(BitReader &bits) const {
    std::uint32_t prefix = 1;
    while (!index_.contains(prefix)) prefix = prefix << 1 | bits.read(1);
    return index_.at(prefix);
}

SpectralCodebook spectral_codebook(unsigned codebook) {
    static constexpr std::array<SpectralCodebook, 6> pairs_of_codebooks = {
        {{4, 3, -1}, {4, 3, 0}, {2, 9, -4}, {2, 8, 0}, {2, 13, 0}, {2, 17, 0}}};
    return pairs_of_codebooks.at((codebook - 1) / 2);
}

const StandardTables &standard_tables() {
    static const StandardTables tables = load_standard_tables();
    return tables;
}

}  // namespace tavik_test
