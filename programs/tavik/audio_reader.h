// The input side of the program, second step: from decoded samples to those that the encoder takes.
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

// Reads any audio file as interleaved 16-bit samples of a chosen rate, number of channels and level. Samples that have
// all that come through as they are.
class AudioReader {
 public:
    // As AudioDecoder; throws ProgramError with ExitCode::input also when the file yields no samples.
    explicit AudioReader(const Source &source);

    // Format at the start of the file.
    AudioFormat source() const { return source_; }

    // Chooses what read() delivers, and a gain; to be called once, before it.
    void set_output(AudioFormat format, double gain_db);

    // Fills `block` and returns its samples per channel; less than fits only at the end of the file. Decodes no more
    // than it needs, so that nothing waits for input that has not come yet.
    size_t read(std::span<int16_t> block);

    const AudioDecoder &decoder() const { return decoder_; }
    const Level &level() const { return level_; }

 private:
    // A layout as FFmpeg's libraries keep it, freed in the end.
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

    FfmpegHandle<SwrContext> converter_;  // from the three properties below to output_
    int converter_sample_format_ = AV_SAMPLE_FMT_NONE;
    int converter_rate_ = 0;
    ChannelLayout converter_layout_;
    int64_t converter_input_ = 0;   // samples per channel it has taken
    int64_t converter_output_ = 0;  // samples per channel it has given out

    std::vector<float> converted_;  // room for one conversion
    std::vector<int16_t> levelled_;
    Level level_;
    FfmpegHandle<AVAudioFifo> fifo_;
};

}  // namespace tavik
