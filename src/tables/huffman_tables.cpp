// The public Huffman tables: lengths and codewords of the standard's codebooks. Where a codebook codes magnitudes, the
// lengths include one sign bit for each value that is not zero, so that counting a tuple takes one read, and writing it
// one call.
#include <cstddef>

#include "tables/codeword_lengths.h"
#include "tavik.h"

namespace tavik::tables {
namespace {

template <std::size_t N>
consteval std::array<u32, N> codewords(const Codebook<N> &book) {
    std::array<u32, N> codes{};
    for (std::size_t i = 0; i < N; ++i) codes[i] = book[i].code;
    return codes;
}

// Prefix-free and complete: no codeword begins another, and the sum of 2^-length is 1.
template <std::size_t N>
consteval bool complete_prefix_code(const Codebook<N> &book) {
    constexpr u32 max_length = 19;
    u32 kraft_sum = 0;  // in units of 2^-max_length
    for (const Codeword &word : book) {
        kraft_sum += 1u << (max_length - word.length);
        for (const Codeword &other : book) {
            if (&other == &word || other.length < word.length) continue;
            if (other.code >> (other.length - word.length) == word.code) return false;
        }
    }
    return kraft_sum == 1u << max_length;
}

static_assert(complete_prefix_code(codebook_1));
static_assert(complete_prefix_code(codebook_2));
static_assert(complete_prefix_code(codebook_3));
static_assert(complete_prefix_code(codebook_4));
static_assert(complete_prefix_code(codebook_5));
static_assert(complete_prefix_code(codebook_6));
static_assert(complete_prefix_code(codebook_7));
static_assert(complete_prefix_code(codebook_8));
static_assert(complete_prefix_code(codebook_9));
static_assert(complete_prefix_code(codebook_10));
static_assert(complete_prefix_code(codebook_11));
static_assert(complete_prefix_code(scale_factor_codebook));

}  // namespace

extern "C" {

extern constexpr std::array<u32, 81> tavik_huff1_lengths = lengths(codebook_1);
extern constexpr std::array<u32, 81> tavik_huff1_codewords = codewords(codebook_1);
extern constexpr std::array<u32, 81> tavik_huff2_lengths = lengths(codebook_2);
extern constexpr std::array<u32, 81> tavik_huff2_codewords = codewords(codebook_2);
extern constexpr std::array<u32, 81> tavik_huff3_lengths = lengths_with_signs(codebook_3, 3);
extern constexpr std::array<u32, 81> tavik_huff3_codewords = codewords(codebook_3);
extern constexpr std::array<u32, 81> tavik_huff4_lengths = lengths_with_signs(codebook_4, 3);
extern constexpr std::array<u32, 81> tavik_huff4_codewords = codewords(codebook_4);
extern constexpr std::array<u32, 81> tavik_huff5_lengths = lengths(codebook_5);
extern constexpr std::array<u32, 81> tavik_huff5_codewords = codewords(codebook_5);
extern constexpr std::array<u32, 81> tavik_huff6_lengths = lengths(codebook_6);
extern constexpr std::array<u32, 81> tavik_huff6_codewords = codewords(codebook_6);
extern constexpr std::array<u32, 64> tavik_huff7_lengths = lengths_with_signs(codebook_7, 8);
extern constexpr std::array<u32, 64> tavik_huff7_codewords = codewords(codebook_7);
extern constexpr std::array<u32, 64> tavik_huff8_lengths = lengths_with_signs(codebook_8, 8);
extern constexpr std::array<u32, 64> tavik_huff8_codewords = codewords(codebook_8);
extern constexpr std::array<u32, 169> tavik_huff9_lengths = lengths_with_signs(codebook_9, 13);
extern constexpr std::array<u32, 169> tavik_huff9_codewords = codewords(codebook_9);
extern constexpr std::array<u32, 169> tavik_huff10_lengths = lengths_with_signs(codebook_10, 13);
extern constexpr std::array<u32, 169> tavik_huff10_codewords = codewords(codebook_10);
extern constexpr std::array<u32, 289> tavik_huff11_lengths = lengths(codebook_11);
extern constexpr std::array<u32, 289> tavik_huff11_codewords = codewords(codebook_11);
extern constexpr std::array<u32, 121> tavik_huff12_lengths = lengths(scale_factor_codebook);
extern constexpr std::array<u32, 121> tavik_huff12_codewords = codewords(scale_factor_codebook);

}  // extern "C"

static_assert(tavik_huff3_lengths[1] == 5 && tavik_huff3_codewords[1] == 9);
static_assert(tavik_huff3_lengths[80] == 19 && tavik_huff3_codewords[80] == 32762);
static_assert(tavik_huff7_lengths[1] == 4 && tavik_huff7_codewords[1] == 5);
static_assert(tavik_huff9_lengths[1] == 4 && tavik_huff9_codewords[1] == 5);
static_assert(tavik_huff1_lengths[40] == 1 && tavik_huff1_lengths[0] == 11 && tavik_huff1_codewords[0] == 2040);
static_assert(tavik_huff11_lengths[0] == 4 && tavik_huff11_lengths[288] == 5 && tavik_huff11_codewords[288] == 4);
static_assert(tavik_huff12_lengths[60] == 1 && tavik_huff12_codewords[0] == 0x3FFE8);
static_assert(tavik_huff12_lengths[120] == 19 && tavik_huff12_codewords[120] == 0x7FFF3);

}  // namespace tavik::tables

// The C arrays of the public header are these std::arrays under another name.
extern "C" [[gnu::alias("tavik_huff1_lengths")]] const std::uint32_t TAVIK_ZOLF_huff10[81];
extern "C" [[gnu::alias("tavik_huff1_codewords")]] const std::uint32_t TAVIK_ZOLF_huff11[81];
extern "C" [[gnu::alias("tavik_huff2_lengths")]] const std::uint32_t TAVIK_ZOLF_huff20[81];
extern "C" [[gnu::alias("tavik_huff2_codewords")]] const std::uint32_t TAVIK_ZOLF_huff21[81];
extern "C" [[gnu::alias("tavik_huff3_lengths")]] const std::uint32_t TAVIK_ZOLF_huff30[81];
extern "C" [[gnu::alias("tavik_huff3_codewords")]] const std::uint32_t TAVIK_ZOLF_huff31[81];
extern "C" [[gnu::alias("tavik_huff4_lengths")]] const std::uint32_t TAVIK_ZOLF_huff40[81];
extern "C" [[gnu::alias("tavik_huff4_codewords")]] const std::uint32_t TAVIK_ZOLF_huff41[81];
extern "C" [[gnu::alias("tavik_huff5_lengths")]] const std::uint32_t TAVIK_ZOLF_huff50[81];
extern "C" [[gnu::alias("tavik_huff5_codewords")]] const std::uint32_t TAVIK_ZOLF_huff51[81];
extern "C" [[gnu::alias("tavik_huff6_lengths")]] const std::uint32_t TAVIK_ZOLF_huff60[81];
extern "C" [[gnu::alias("tavik_huff6_codewords")]] const std::uint32_t TAVIK_ZOLF_huff61[81];
extern "C" [[gnu::alias("tavik_huff7_lengths")]] const std::uint32_t TAVIK_ZOLF_huff70[64];
extern "C" [[gnu::alias("tavik_huff7_codewords")]] const std::uint32_t TAVIK_ZOLF_huff71[64];
extern "C" [[gnu::alias("tavik_huff8_lengths")]] const std::uint32_t TAVIK_ZOLF_huff80[64];
extern "C" [[gnu::alias("tavik_huff8_codewords")]] const std::uint32_t TAVIK_ZOLF_huff81[64];
extern "C" [[gnu::alias("tavik_huff9_lengths")]] const std::uint32_t TAVIK_ZOLF_huff90[169];
extern "C" [[gnu::alias("tavik_huff9_codewords")]] const std::uint32_t TAVIK_ZOLF_huff91[169];
extern "C" [[gnu::alias("tavik_huff10_lengths")]] const std::uint32_t TAVIK_ZOLF_huff100[169];
extern "C" [[gnu::alias("tavik_huff10_codewords")]] const std::uint32_t TAVIK_ZOLF_huff101[169];
extern "C" [[gnu::alias("tavik_huff11_lengths")]] const std::uint32_t TAVIK_ZOLF_huff110[289];
extern "C" [[gnu::alias("tavik_huff11_codewords")]] const std::uint32_t TAVIK_ZOLF_huff111[289];
extern "C" [[gnu::alias("tavik_huff12_lengths")]] const std::uint32_t TAVIK_ZOLF_huff120[121];
extern "C" [[gnu::alias("tavik_huff12_codewords")]] const std::uint32_t TAVIK_ZOLF_huff121[121];
