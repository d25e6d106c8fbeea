// Whether what comes out of a decoder sounds like what went into the encoder.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "support/reference_decoder.h"
#include "support/strict_reader.h"
#include "tavik.h"

namespace tavik_fuzz {

// Follows one stream: the samples of its calls, and the frames that a decoder makes of it.
class SoundCheck {
 public:
    explicit SoundCheck(const EncoderConfig &config);

    // The interleaved samples of a call; none for one that moved silence in.
    void take_input(std::span<const std::int16_t> pcm);

    // The decoded samples of the frame that the same call gave. At rates without a low-pass and with bits enough for
    // every band, their error must be small against the signal that both blocks under them code, unless a filter of
    // temporal noise shaping blows it up. Throws std::runtime_error.
    void check(const tavik_test::Frame &frame, const tavik_test::DecodedFrame &decoded);

 private:
    using Samples = std::vector<float>;  // of one channel and frame

    double energy_around(std::size_t channel) const;

    bool is_exact_enough_;
    bool is_pair_;
    // Per channel the frames in the encoder, from the newest: lookahead, newer and older half of the block just coded,
    // and the frame before that.
    std::vector<std::array<Samples, 4>> frames_;
    bool was_checkable_ = false;  // the block before, whose second half lies under the samples too
};

}  // namespace tavik_fuzz
