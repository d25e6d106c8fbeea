// Thin on purpose: the library does the work, and its statuses become exceptions.
#include "stream_encoder.h"

#include <stdexcept>
#include <string>

#include "program_error.h"

namespace tavik {
namespace {

std::string error_text(int32_t status) {
    switch (status) {
        case TAVIK_ERR_CHANNEL_MODE: return "channel mode not supported";
        case TAVIK_ERR_SAMPLE_RATE: return "sampling rate not supported";
        case TAVIK_ERR_BIT_RATE: return "bit rate out of range";
        case TAVIK_ERR_HEADER_TYPE: return "framing not supported";
        case TAVIK_ERR_CONSTANT_RATE: return "constant rate must be on or off";
        case TAVIK_ERR_HOME: return "home bit must be on or off";
        case TAVIK_ERR_ORIGINAL_COPY: return "original bit must be on or off";
        case TAVIK_ERR_COPYRIGHT_ID_PRESENT: return "copyright identifier must be on or off";
        case TAVIK_ERR_PRIMING_FRAME: return "priming frame must be on or off";
        case TAVIK_ERR_TNS_DISABLE: return "temporal noise shaping must be on or off";
        default: return "refused with status " + std::to_string(status);
    }
}

}  // namespace

StreamEncoder::StreamEncoder(const EncoderConfig &config) {
    if (TAVIK_Init(&context_, &config) != 0) {
        throw ProgramError(ExitCode::usage, "configuration", error_text(context_.status));
    }
}

std::span<const uint8_t> StreamEncoder::encode(const int16_t *samples, size_t sample_count) {
    auto count = static_cast<uint32_t>(sample_count);
    uint32_t byte_count = 0;
    if (TAVIK_Encode(&context_, samples, &count, frame_.data(), &byte_count) < 0) {
        throw std::logic_error("the encoder failed with status " + std::to_string(context_.status));
    }
    return {frame_.data(), byte_count};
}

}  // namespace tavik
