// Input, step 2: from decoded samples to the format that the encoder needs.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "audio_decoder.h"
#include "level.h"

namespace tavik {

struct AudioFormat {
    uint32_t rate;  // Hz
    uint32_t channels;
};

// Reads any audio file as interleaved 16-bit samples with a chosen rate, number of channels and gain. Samples that
// already have this format pass through unchanged.
class AudioReader {
 public:
    // Throws as AudioDecoder, and ProgramError with ExitCode::input when the file has no samples.
    explicit AudioReader(const Source &source);

    // Format of the first frame of the file.
    AudioFormat source() const { return source_; }

    // Sets the format and gain of the samples that read() returns; to be called once, before it.
    void set_output(AudioFormat format, double gain_db);

    // Fills `block` and returns the number of samples per channel, fewer than fit only at the end of the file. Decodes
    // no more than needed, so that it does not wait for live input unnecessarily.
    size_t read(std::span<int16_t> block);

    const AudioDecoder &decoder() const { return decoder_; }
    const Level &level() const { return level_; }

 private:
    // Releases the layout when it is destroyed.
    struct ChannelLayout : AVChannelLayout {
        ChannelLayout() : AVChannelLayout{} {}
        ~ChannelLayout() { av_channel_layout_uninit(this); }
        ChannelLayout(const ChannelLayout &) = delete;
        ChannelLayout &operator=(const ChannelLayout &) = delete;
    };

    bool refill();
    bool is_as_wanted(const AVFrame &frame) const;
    void store(void *samples, int count);
    bool converter_fits(const AVFrame &frame) const;
    void make_converter(const AVFrame &frame);
    int try_converter(const AVFrame &frame, ChannelLayout &input_layout);
    int convert(const uint8_t **samples, int count, int room);
    void drain_converter();

    AudioDecoder decoder_;
    const AVFrame *pending_;  // the first frame, until it is converted
    AudioFormat source_{};
    AudioFormat output_{};

    FfmpegHandle<SwrContext> converter_;  // from the format in the next three members to output_
    int converter_sample_format_ = AV_SAMPLE_FMT_NONE;
    int converter_rate_ = 0;
    ChannelLayout converter_layout_;
    int64_t converter_input_ = 0;   // samples per channel that went in
    int64_t converter_output_ = 0;  // samples per channel that came out

    std::vector<float> converted_;  // output of one conversion
    std::vector<int16_t> levelled_;
    Level level_;
    FfmpegHandle<AVAudioFifo> fifo_;
};

}  // namespace tavik
