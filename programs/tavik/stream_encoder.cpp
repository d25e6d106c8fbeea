#include "stream_encoder.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

namespace tavik {
std::string version_text(uint32_t version) {
    return fmt::format("{}.{}.{}", version >> 28, version >> 16 & 0xFFF, version & 0xFFFF);
}

StreamEncoder::StreamEncoder(const EncoderConfig &config) {
    if (TAVIK_Init(&context_, &config) != 0) {
        throw std::logic_error("configuration refused, status " + std::to_string(context_.status));
    }
}

std::span<const uint8_t> StreamEncoder::encode(const int16_t *samples, size_t sample_count) {
    auto count = static_cast<uint32_t>(sample_count);
    uint32_t byte_count = 0;
    if (TAVIK_Encode(&context_, samples, &count, frame_.data(), &byte_count) < 0) {
        throw std::logic_error("encoder failed, status " + std::to_string(context_.status));
    }
    return {frame_.data(), byte_count};
}

}  // namespace tavik
