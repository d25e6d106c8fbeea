#include "support/standard_tables.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/require.h"

namespace tavik_test {
namespace {

// The rows of a file behind its heading, with spaces for commas.
std::vector<std::istringstream> read_rows(const std::string &path) {
    std::ifstream file(path);
    std::vector<std::istringstream> rows;
    std::string line;
    require(static_cast<bool>(std::getline(file, line)), "cannot read ", path);
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
        require(!row.fail() && index == codewords.at(codebook - 1).size(), "wrong row: ", row.str());
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
        require(limits.size() == bands + 1, "wrong row: ", row.str());
    }
    return tables;
}

}  // namespace

HuffmanCode::HuffmanCode(std::vector<Codeword> codewords) : codewords_(std::move(codewords)), nodes_(1) {
    for (std::size_t index = 0; index < codewords_.size(); ++index) {
        const auto [length, bits] = codewords_[index];
        std::size_t node = 0;
        for (unsigned left = length; left-- > 1; node = static_cast<std::size_t>(nodes_[node][bits >> left & 1])) {
            if (nodes_[node][bits >> left & 1] != nowhere) continue;
            nodes_[node][bits >> left & 1] = static_cast<int>(nodes_.size());
            nodes_.emplace_back();
        }
        nodes_[node][bits & 1] = ~static_cast<int>(index);
    }
}

unsigned HuffmanCode::decode(BitReader &bits) const {
    int node = nodes_[0][bits.read(1)];
    while (node > 0) node = nodes_[static_cast<std::size_t>(node)][bits.read(1)];
    bits.require(node != nowhere, "no Huffman codeword");
    return static_cast<unsigned>(~node);
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
