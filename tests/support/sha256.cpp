#include "support/sha256.h"

#include <array>
#include <bit>
#include <cstddef>
#include <vector>

namespace tavik_test {
namespace {

constexpr std::size_t block_bytes = 64;

// First 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<std::uint32_t, 64> round_constants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<std::uint32_t, 8>;

void digest_block(State &state, std::span<const std::uint8_t> block) {
    std::array<std::uint32_t, 64> w{};
    for (std::size_t i = 0; i < block_bytes; ++i) w[i / 4] = w[i / 4] << 8 | block[i];
    State s = state;
    for (std::size_t t = 0; t < w.size(); ++t) {
        if (t >= 16) {
            const std::uint32_t x = w[t - 15], y = w[t - 2];
            w[t] = w[t - 7] + w[t - 16] + (std::rotr(x, 7) ^ std::rotr(x, 18) ^ x >> 3) +
                   (std::rotr(y, 17) ^ std::rotr(y, 19) ^ y >> 10);
        }
        const auto [a, b, c, d, e, f, g, h] = s;
        const std::uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const std::uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const std::uint32_t temp1 = h + sum1 + ((e & f) ^ (~e & g)) + round_constants[t] + w[t];
        const std::uint32_t temp2 = sum0 + ((a & b) ^ (a & c) ^ (b & c));
        s = {temp1 + temp2, a, b, c, d + temp1, e, f, g};
    }
    for (std::size_t i = 0; i < state.size(); ++i) state[i] += s[i];
}

}  // namespace

std::string sha256_hex(std::span<const std::uint8_t> data) {
    // Padding: a one bit, zeros, and the length in bits as a number of 64 bits at the end of a block.
    std::vector<std::uint8_t> padded(data.begin(), data.end());
    padded.push_back(0x80);
    while (padded.size() % block_bytes != block_bytes - 8) padded.push_back(0);
    for (int shift = 56; shift >= 0; shift -= 8) {
        padded.push_back(static_cast<std::uint8_t>(std::uint64_t{8} * data.size() >> shift));
    }

    // First 32 bits of the fractional parts of the square roots of the first 8 primes.
    State state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    for (std::size_t i = 0; i < padded.size(); i += block_bytes) digest_block(state, std::span(padded).subspan(i));

    std::string hex;
    for (const std::uint32_t word : state) {
        for (int shift = 28; shift >= 0; shift -= 4) hex += "0123456789abcdef"[word >> shift & 15];
    }
    return hex;
}

}  // namespace tavik_test
