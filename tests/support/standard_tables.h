// Huffman codebooks and scale-factor bands of ISO/IEC 14496-3, read at run time from tests/data.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "support/bit_reader.h"

namespace tavik_test {

struct Codeword {
    unsigned length;     // bits, 1 to 32
    std::uint32_t bits;  // right-aligned
};

// A complete prefix code: every sequence of bits starts with exactly one of its codewords.
class HuffmanCode {
 public:
    // Throws std::runtime_error unless the codewords are prefix-free with a Kraft sum of exactly 1.
    explicit HuffmanCode(std::vector<Codeword> codewords);

    const std::vector<Codeword> &codewords() const { return codewords_; }

    // Reads one codeword and returns its index.
    unsigned decode(BitReader &bits) const;

 private:
    // The two branches of an inner node: the number of another inner node, ~index of a codeword, or 0 = none (node 0
    // is the root, on which no branch ends).
    using Node = std::array<std::int32_t, 2>;

    void insert(const Codeword &codeword, unsigned index);

    std::vector<Codeword> codewords_;
    std::vector<Node> nodes_ = {Node{}};
};

constexpr unsigned first_spectral_codebook = 1;
constexpr unsigned escape_codebook = 11;
constexpr unsigned scale_factor_codebook = 12;
constexpr unsigned sampling_frequency_count = 12;

// How the spectral codebooks 1 to 11 are used.
struct SpectralCodebook {
    unsigned dimension;  // values per codeword
    unsigned modulus;    // values a codeword tells apart in each dimension; the first value is the leading digit
    int lowest;          // the smallest of them; 0 = magnitudes, with sign bits after the codeword
};
SpectralCodebook spectral_codebook(unsigned codebook);

struct StandardTables {
    std::vector<HuffmanCode> codes;  // codes[codebook - 1]
    // By sampling_frequency_index: the first spectral line of each band, and the number of lines at the end.
    std::array<std::vector<unsigned>, sampling_frequency_count> long_bands;
    std::array<std::vector<unsigned>, sampling_frequency_count> short_bands;

    const HuffmanCode &code(unsigned codebook) const { return codes.at(codebook - 1); }

    // Band limits of a window of 1024 lines, or of 128 lines (`is_short`).
    const std::vector<unsigned> &bands(unsigned sampling_frequency_index, bool is_short) const {
        return (is_short ? short_bands : long_bands).at(sampling_frequency_index);
    }
};

// Reads both files from a directory; throws std::runtime_error for any inconsistency.
StandardTables load_standard_tables(const std::filesystem::path &directory);

// The tables of tests/data, loaded at the first call.
const StandardTables &standard_tables();

}  // namespace tavik_test
