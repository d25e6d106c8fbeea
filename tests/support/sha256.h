// SHA-256 (FIPS 180-4), to pin long streams of bytes by a short text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tavik_test {

// The digest of `data`: 64 lower-case hexadecimal digits.
std::string sha256_hex(std::span<const std::uint8_t> data);

}  // namespace tavik_test
