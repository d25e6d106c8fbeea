// Checks that decoded samples are similar to the samples that were encoded.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "support/reference_decoder.h"
#include "support/strict_reader.h"
#include "tavik.h"

namespace tavik_fuzz {

// Compares the input of one stream with the decoded frames.
class SoundCheck {
 public:
    explicit SoundCheck(const EncoderConfig &config);

    // To be called with the interleaved samples of each call; with none if the call encoded silence.
    void take_input(std::span<const std::int16_t> pcm);

    // Checks the decoded samples of the frame from the same call. At rates without a low-pass and with enough bits for
    // every band, their error must be small compared with the signal in the two blocks that overlap there, unless a
    // filter of temporal noise shaping amplifies it. Throws std::runtime_error.
    void check(const tavik_test::Frame &frame, const tavik_test::DecodedFrame &decoded);

 private:
    using Samples = std::vector<float>;  // of one channel and frame

    double energy_around(std::size_t channel) const;

    bool is_exact_enough_;
    bool is_pair_;
    // Last four frames of input per channel, newest first: lookahead, second and first half of the block that was coded
    // last, and the frame before.
    std::vector<std::array<Samples, 4>> frames_;
    bool was_checkable_ = false;  // of the previous block, whose second half overlaps the samples too
};

}  // namespace tavik_fuzz
