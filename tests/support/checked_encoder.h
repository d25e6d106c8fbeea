// The public interface of the library under the eyes of a mistrustful host.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "support/guarded_memory.h"
#include "tavik.h"

namespace tavik_test {

// The nine rates in Hz.
inline constexpr std::array<std::uint32_t, 9> sample_rates = {48000, 44100, 32000, 24000, 22050,
                                                              16000, 12000, 11025, 8000};

unsigned channel_count(const EncoderConfig &config);

// The end-of-stream protocol as the header states it: what each call of TAVIK_Encode has to answer.
class Protocol {
 public:
    struct Answer {
        std::int32_t result;
        std::int32_t status;
        bool gives_frame;
    };

    explicit Protocol(bool emits_priming_frame) : emits_priming_frame_(emits_priming_frame) {}

    Answer next_call(std::uint32_t samples);

 private:
    bool is_filling() const { return !has_given_frame_ && frames_taken_ < (emits_priming_frame_ ? 2 : 3); }

    bool emits_priming_frame_;
    bool has_given_frame_ = false;
    unsigned frames_taken_ = 0;    // up to 3
    unsigned closing_frames_ = 0;  // given since the end of the input, up to 2
};

// One context between guards. Each call checks the library's promises and throws std::runtime_error where one is
// broken: result, status and counts are those of the protocol; nothing is read or written outside context, the samples
// told of and the output buffer; the input stays as it was, and so does the output buffer behind the frame.
class CheckedEncoder {
 public:
    // Flush with the start the context is aligned to 8 bytes and no more, and the output lies at an odd address.
    explicit CheckedEncoder(Flush flush = Flush::with_end) : flush_(flush) { renew(0xa5); }

    // Forgets everything: every byte of the context becomes `stale`, until the next init.
    void renew(std::uint8_t stale);

    // Returns the status, TAVIK_OK or the reason of the refusal. May be called at any time.
    std::int32_t init(const EncoderConfig &config);

    // One call with interleaved samples, the first `told` of each channel in the library's eyes: `pcm` holds them, but
    // 1024 per channel at most. Returns the frame, if the call gave one; it stands until the next call.
    std::span<const std::uint8_t> encode(std::span<const std::int16_t> pcm, std::uint32_t told);

    // Calls with each pointer absent in turn: nothing may change but the status.
    void encode_with_absent_pointers();

    std::int32_t status() const { return context_->status; }

 private:
    std::span<std::uint8_t> output_block() {
        return output_.block(channels_ * TAVIK_MAX_FRAME_BYTES_PER_CHANNEL, 0x5a, flush_, 1);
    }

    Flush flush_;
    GuardedMemory memory_{sizeof(EncoderContext)};
    GuardedMemory config_{sizeof(EncoderConfig)};
    GuardedMemory input_{2 * TAVIK_FRAME_LENGTH * sizeof(std::int16_t)};
    GuardedMemory output_{TAVIK_MAX_FRAME_BYTES + 1};
    EncoderContext *context_ = nullptr;
    unsigned channels_ = 0;
    Protocol protocol_{false};
};

}  // namespace tavik_test
