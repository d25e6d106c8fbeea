#include "support/standard_tables.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace tavik_test {
namespace {

constexpr unsigned max_codeword_length = 32;
constexpr unsigned scale_factor_code_size = 121;  // differences -60 to 60

unsigned parse_number(std::string_view text, int base = 10) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::runtime_error("not a number: '" + std::string(text) + "'");
    }
    return value;
}

unsigned parse_hexadecimal(std::string_view text) {
    if (!text.starts_with("0x")) throw std::runtime_error("not hexadecimal: '" + std::string(text) + "'");
    return parse_number(text.substr(2), 16);
}

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> fields;
    std::istringstream stream(text);
    for (std::string field; std::getline(stream, field, separator);) fields.push_back(field);
    return fields;
}

// The rows of a CSV file behind the heading, which must be as given; no quoting.
std::vector<std::vector<std::string>> read_csv(const std::filesystem::path &path, const std::string &heading) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) throw std::runtime_error("cannot read " + path.string());
    if (line != heading) throw std::runtime_error("unexpected heading in " + path.string());
    const std::size_t columns = split(heading, ',').size();
    std::vector<std::vector<std::string>> rows;
    while (std::getline(file, line)) {
        rows.push_back(split(line, ','));
        if (rows.back().size() != columns) throw std::runtime_error("unexpected row in " + path.string());
    }
    return rows;
}

std::size_t expected_code_size(unsigned codebook) {
    if (codebook == scale_factor_codebook) return scale_factor_code_size;
    const SpectralCodebook book = spectral_codebook(codebook);
    std::size_t size = 1;
    for (unsigned i = 0; i < book.dimension; ++i) size *= book.modulus;
    return size;
}

std::vector<HuffmanCode> load_codes(const std::filesystem::path &path) {
    std::map<unsigned, std::vector<Codeword>> codewords;
    for (const auto &row : read_csv(path, "codebook,index,length,codeword")) {
        auto &book = codewords[parse_number(row[0])];
        if (parse_number(row[1]) != book.size()) throw std::runtime_error("codeword out of order in " + path.string());
        book.push_back({parse_number(row[2]), parse_hexadecimal(row[3])});
    }
    std::vector<HuffmanCode> codes;
    for (unsigned codebook = first_spectral_codebook; codebook <= scale_factor_codebook; ++codebook) {
        if (codewords[codebook].size() != expected_code_size(codebook)) {
            throw std::runtime_error("wrong size of codebook " + std::to_string(codebook));
        }
        codes.emplace_back(codewords[codebook]);
    }
    if (codewords.size() != codes.size()) throw std::runtime_error("unknown codebook in " + path.string());
    return codes;
}

// A list of band limits, which must rise from 0 to `lines` in multiples of 4.
std::vector<unsigned> parse_bands(const std::string &offsets, std::size_t bands, unsigned lines) {
    std::vector<unsigned> limits;
    for (const auto &field : split(offsets, ' ')) limits.push_back(parse_number(field));
    const bool rising = std::adjacent_find(limits.begin(), limits.end(), std::greater_equal<>()) == limits.end();
    const bool aligned = std::all_of(limits.begin(), limits.end(), [](unsigned limit) { return limit % 4 == 0; });
    if (limits.size() != bands + 1 || limits.front() != 0 || limits.back() != lines || !rising || !aligned) {
        throw std::runtime_error("inconsistent scale-factor bands: " + offsets);
    }
    return limits;
}

void load_bands(const std::filesystem::path &path, StandardTables &tables) {
    for (const auto &row : read_csv(path, "window,sampling_frequency_index,bands,offsets")) {
        if (row[0] != "long" && row[0] != "short") throw std::runtime_error("unknown window " + row[0]);
        const bool is_long = row[0] == "long";
        auto &bands = (is_long ? tables.long_bands : tables.short_bands).at(parse_number(row[1]));
        if (!bands.empty()) throw std::runtime_error("scale-factor bands given twice in " + path.string());
        bands = parse_bands(row[3], parse_number(row[2]), is_long ? 1024 : 128);
    }
    const auto is_missing = [](const std::vector<unsigned> &bands) { return bands.empty(); };
    if (std::any_of(tables.long_bands.begin(), tables.long_bands.end(), is_missing) ||
        std::any_of(tables.short_bands.begin(), tables.short_bands.end(), is_missing)) {
        throw std::runtime_error("scale-factor bands missing in " + path.string());
    }
}

}  // namespace

HuffmanCode::HuffmanCode(std::vector<Codeword> codewords) : codewords_(std::move(codewords)) {
    for (unsigned index = 0; index < codewords_.size(); ++index) insert(codewords_[index], index);
    // With each codeword a leaf of its own, the Kraft sum is 1 exactly when no inner node lacks a branch.
    for (const Node &node : nodes_) {
        if (node[0] == 0 || node[1] == 0) throw std::runtime_error("Huffman code with a Kraft sum below 1");
    }
}

void HuffmanCode::insert(const Codeword &codeword, unsigned index) {
    if (codeword.length == 0 || codeword.length > max_codeword_length ||
        std::uint64_t{codeword.bits} >> codeword.length != 0) {
        throw std::runtime_error("Huffman codeword of a wrong length");
    }
    std::size_t node = 0;
    for (unsigned left = codeword.length; left > 0; --left) {
        const std::size_t bit = codeword.bits >> (left - 1) & 1u;
        const std::int32_t branch = nodes_[node][bit];
        const bool is_last = left == 1;
        if (branch < 0 || (is_last && branch != 0)) throw std::runtime_error("Huffman code is not prefix-free");
        if (is_last) {
            nodes_[node][bit] = ~static_cast<std::int32_t>(index);
        } else if (branch == 0) {
            nodes_[node][bit] = static_cast<std::int32_t>(nodes_.size());
            node = nodes_.size();
            nodes_.push_back(Node{});
        } else {
            node = static_cast<std::size_t>(branch);
        }
    }
}

unsigned HuffmanCode::decode(BitReader &bits) const {
    std::int32_t branch = 0;
    do branch = nodes_[static_cast<std::size_t>(branch)][bits.read_bit()];
    while (branch > 0);
    return static_cast<unsigned>(~branch);
}

SpectralCodebook spectral_codebook(unsigned codebook) {
    static constexpr std::array<SpectralCodebook, escape_codebook> codebooks = {{{4, 3, -1},
                                                                                 {4, 3, -1},
                                                                                 {4, 3, 0},
                                                                                 {4, 3, 0},
                                                                                 {2, 9, -4},
                                                                                 {2, 9, -4},
                                                                                 {2, 8, 0},
                                                                                 {2, 8, 0},
                                                                                 {2, 13, 0},
                                                                                 {2, 13, 0},
                                                                                 {2, 17, 0}}};
    return codebooks.at(codebook - first_spectral_codebook);
}

StandardTables load_standard_tables(const std::filesystem::path &directory) {
    StandardTables tables;
    tables.codes = load_codes(directory / "huffman_codebooks.csv");
    load_bands(directory / "scalefactor_bands.csv", tables);
    return tables;
}

const StandardTables &standard_tables() {
    static const StandardTables tables = load_standard_tables(TAVIK_TEST_DATA_DIR);
    return tables;
}

}  // namespace tavik_test
