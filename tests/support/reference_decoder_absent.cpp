#include "support/reference_decoder.h"

namespace tavik_test {

struct ReferenceDecoder::Codecs {};

ReferenceDecoder::ReferenceDecoder() = default;
ReferenceDecoder::~ReferenceDecoder() = default;
void ReferenceDecoder::start(const EncoderConfig &) {}
DecodedFrame ReferenceDecoder::decode(std::span<const std::uint8_t>, std::size_t) { return {}; }

}  // namespace tavik_test
