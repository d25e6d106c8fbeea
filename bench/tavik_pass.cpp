#include <tavik.h>

#include <algorithm>
#include <array>
#include <span>
#include <stdexcept>

#include "pass.h"

namespace tavik_bench {
namespace {

class TavikPass : public Pass {
 public:
    TavikPass(const Clip &clip, unsigned bit_rate, const TavikOptions &options)
        : clip_(clip), after_call_(options.after_call) {
        EncoderConfig config{};
        config.channel_mode = clip.channels == 1 ? TAVIK_MODE_MONO
                              : options.two_mono ? TAVIK_MODE_TWO_MONO
                                                 : TAVIK_MODE_STEREO;
        config.sample_rate = clip.sample_rate;
        config.bit_rate = bit_rate / clip.channels;
        if (TAVIK_Init(&context_, &config) != 0) {
            throw std::runtime_error("configuration refused, status " + std::to_string(context_.status));
        }
    }

    std::size_t run() override {
        std::size_t bytes = 0;
        encode([&bytes](std::span<const std::uint8_t> frame) { bytes += frame.size(); });
        return bytes;
    }

    Stream frames() {
        Stream stream;
        encode([&stream](std::span<const std::uint8_t> frame) {
            if (!frame.empty()) stream.emplace_back(frame.begin(), frame.end());
        });
        return stream;
    }

 private:
    // Takes what each call gives, which may be nothing, to `take`.
    template <typename Take>
    void encode(Take take) {
        std::size_t position = 0;
        do {
            const std::size_t left = clip_.samples_per_channel() - position;
            auto samples = static_cast<std::uint32_t>(std::min<std::size_t>(left, TAVIK_FRAME_LENGTH));
            std::uint32_t frame_bytes = 0;
            TAVIK_Encode(&context_, clip_.pcm.data() + position * clip_.channels, &samples, frame_.data(),
                         &frame_bytes);
            if (after_call_ != nullptr) after_call_();
            position += samples;
            take(std::span(frame_.data(), frame_bytes));
        } while (context_.status != TAVIK_STATUS_END_OF_STREAM);
    }

    const Clip &clip_;
    void (*after_call_)();
    EncoderContext context_{};
    std::array<std::uint8_t, TAVIK_MAX_FRAME_BYTES> frame_{};
};

}  // namespace

std::unique_ptr<Pass> make_tavik_pass(const Clip &clip, unsigned bit_rate, const TavikOptions &options) {
    return std::make_unique<TavikPass>(clip, bit_rate, options);
}

Stream encode_with_tavik(const Clip &clip, unsigned bit_rate, const TavikOptions &options) {
    return TavikPass(clip, bit_rate, options).frames();
}

}  // namespace tavik_bench
