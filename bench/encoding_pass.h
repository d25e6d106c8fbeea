// One pass of an encoder over a clip. What a host does once for a stream, such as opening the encoder and preparing its
// input, happens when the pass is made; run() is what is measured.
#pragma once

#include <cstddef>
#include <memory>

#include "clip.h"

namespace tavik_bench {

class EncodingPass {
 public:
    EncodingPass() = default;
    EncodingPass(const EncodingPass &) = delete;
    EncodingPass &operator=(const EncodingPass &) = delete;
    virtual ~EncodingPass() = default;

    // Encodes the whole clip, once. Returns the bytes of the stream.
    virtual std::size_t run() = 0;
};

struct TavikOptions {
    bool two_mono = false;           // the two channels of the clip independent of each other
    void (*after_call)() = nullptr;  // runs after every call of TAVIK_Encode
};

// Both take the bit rate of all channels together, in bit/s, and throw std::runtime_error where it is refused. The clip
// has to outlive the pass.
std::unique_ptr<EncodingPass> make_tavik_pass(const Clip &clip, unsigned bit_rate, const TavikOptions &options = {});

// FFmpeg's own AAC encoder, with its fast coder and one thread; nullptr where it was not there to build with.
std::unique_ptr<EncodingPass> make_peer_pass(const Clip &clip, unsigned bit_rate);

}  // namespace tavik_bench
