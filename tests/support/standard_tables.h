// Huffman codebooks and scale-factor bands of ISO/IEC 14496-3, read at run time from test-data.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "support/bit_reader.h"

namespace tavik_test {

struct Codeword {
    unsigned length;     // bits, 1 to 31
    std::uint32_t bits;  // right-aligned
};

// A prefix code.
class HuffmanCode {
 public:
    explicit HuffmanCode(std::vector<Codeword> codewords);

    const std::vector<Codeword> &codewords() const { return codewords_; }

    // Reads one codeword and returns its index.
    unsigned decode(BitReader &bits) const;

 private:
    static constexpr int nowhere = 0;  // no branch leads to the root

    std::vector<Codeword> codewords_;
    // A binary tree: for each inner node, root first, where each bit leads: a node, ~index of a codeword, or nowhere.
    std::vector<std::array<int, 2>> nodes_;
};

constexpr unsigned escape_codebook = 11;
constexpr unsigned scale_factor_codebook = 12;

// How the spectral codebooks 1 to 11 are used.
struct SpectralCodebook {
    unsigned dimension;  // values per codeword
    unsigned modulus;    // values a codeword tells apart in each dimension; the first value is the leading digit
    int lowest;          // the smallest of them; 0 = magnitudes, with sign bits after the codeword
};
SpectralCodebook spectral_codebook(unsigned codebook);

struct StandardTables {
    std::vector<HuffmanCode> codes;  // codes[codebook - 1]
    // [is_short][sampling_frequency_index]: the first spectral line of each band, and the number of lines at the end.
    std::array<std::array<std::vector<unsigned>, 12>, 2> band_limits;

    const HuffmanCode &code(unsigned codebook) const { return codes.at(codebook - 1); }

    // Band limits of a window of 1024 lines, or of 128 lines (`is_short`).
    const std::vector<unsigned> &bands(unsigned sampling_frequency_index, bool is_short) const {
        return band_limits[is_short ? 1 : 0].at(sampling_frequency_index);
    }
};

// The tables of test-data, loaded at the first call; throws std::runtime_error for any inconsistency.
const StandardTables &standard_tables();

}  // namespace tavik_test
