#include "reference_decoder.h"

namespace tavik_fuzz {

struct ReferenceDecoder::Codecs {};

ReferenceDecoder::ReferenceDecoder() = default;
ReferenceDecoder::~ReferenceDecoder() = default;
void ReferenceDecoder::start(const EncoderConfig &) {}
void ReferenceDecoder::start(const EncoderConfig &, std::span<const std::uint8_t>) {}
DecodedFrame ReferenceDecoder::decode(std::span<const std::uint8_t>, std::size_t) { return {}; }

}  // namespace tavik_fuzz
