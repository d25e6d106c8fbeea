#include "encoding_pass.h"

namespace tavik_bench {

std::unique_ptr<EncodingPass> make_peer_pass(const Clip & /*clip*/, unsigned /*bit_rate*/) { return nullptr; }

}  // namespace tavik_bench
