// One pass of an encoder or a decoder over a clip. What a host does once for a stream, such as opening the codec and
// preparing its input, happens when the pass is made; run() is what is measured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "clip.h"

namespace tavik_bench {

class Pass {
 public:
    Pass() = default;
    Pass(const Pass &) = delete;
    Pass &operator=(const Pass &) = delete;
    virtual ~Pass() = default;

    // Goes over the whole clip, once. Returns the bytes that came out: of the stream, or of the samples.
    virtual std::size_t run() = 0;
};

struct TavikOptions {
    bool two_mono = false;           // the two channels of the clip independent of each other
    void (*after_call)() = nullptr;  // runs after every call of TAVIK_Encode
};

// An ADTS stream, frame by frame.
using Stream = std::vector<std::vector<std::uint8_t>>;

// Those that encode take the bit rate of all channels together, in bit/s. All throw std::runtime_error where clip, rate
// or stream is refused. Clip and stream have to outlive the pass.
std::unique_ptr<Pass> make_tavik_pass(const Clip &clip, unsigned bit_rate, const TavikOptions &options = {});
Stream encode_with_tavik(const Clip &clip, unsigned bit_rate, const TavikOptions &options = {});

// What Tavik is measured beside: another encoder of the clip, or a decoder of the stream that Tavik makes of it.
struct Peer {
    std::string name;
    std::unique_ptr<Pass> (*make_pass)(const Clip &clip, const Stream &stream, unsigned bit_rate);
};

// FFmpeg's own AAC encoder, with its fast coder; its AAC decoder. One thread each, samples as planar floats.
std::unique_ptr<Pass> make_ffmpeg_encoder(const Clip &clip, const Stream &stream, unsigned bit_rate);
std::unique_ptr<Pass> make_ffmpeg_decoder(const Clip &clip, const Stream &stream, unsigned bit_rate);

// Libfaad's decoder, with 16-bit samples.
std::unique_ptr<Pass> make_faad_decoder(const Clip &clip, const Stream &stream, unsigned bit_rate);

}  // namespace tavik_bench
