// Decoded frames pass through a converter into a FIFO, from which blocks are read. When the format of the frames
// changes, a new converter is made.
#include "audio_reader.h"

#include <array>
#include <utility>

#include "file_names.h"
#include "program_error.h"

namespace tavik {
namespace {

// From mono to stereo at unchanged level; libswresample's default is 3 dB lower.
constexpr std::array unity_gains{1.0, 1.0};

constexpr int drain_samples = 1024;  // samples per channel and call when a converter is drained

}  // namespace

AudioReader::AudioReader(const Source &source) : decoder_(source), pending_(decoder_.next()) {
    if (pending_ == nullptr) {
        throw ProgramError(ExitCode::input, input_name(decoder_.path()), decoder_.why_no_samples());
    }
    source_ = {static_cast<uint32_t>(pending_->sample_rate), static_cast<uint32_t>(pending_->ch_layout.nb_channels)};
}

void AudioReader::set_output(AudioFormat format, double gain_db) {
    output_ = format;
    level_ = Level(gain_db);
    fifo_ = own(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, static_cast<int>(format.channels), 1));
}

size_t AudioReader::read(std::span<int16_t> block) {
    const int wanted = static_cast<int>(block.size() / output_.channels);
    while (av_audio_fifo_size(fifo_.get()) < wanted && refill()) {
    }
    void *data = block.data();
    return static_cast<size_t>(av_audio_fifo_read(fifo_.get(), &data, wanted));
}

// Converts the next frame into the FIFO; false at the end of the file.
bool AudioReader::refill() {
    const AVFrame *frame = pending_ != nullptr ? std::exchange(pending_, nullptr) : decoder_.next();
    if (frame == nullptr) {
        drain_converter();
        return false;
    }
    if (is_as_wanted(*frame)) {
        drain_converter();
        store(frame->data[0], frame->nb_samples);
        return true;
    }
    if (!converter_fits(*frame)) {
        drain_converter();
        make_converter(*frame);
    }
    const int count = frame->nb_samples;
    // swr_convert() only reads the samples, but in C the pointers do not convert to const implicitly.
    auto **samples = const_cast<const uint8_t **>(frame->extended_data);  // NOLINT(*-const-cast)
    convert(samples, count, swr_get_out_samples(converter_.get(), count));
    return true;
}

// The frame needs no conversion.
bool AudioReader::is_as_wanted(const AVFrame &frame) const {
    return frame.format == AV_SAMPLE_FMT_S16 && frame.sample_rate == static_cast<int>(output_.rate) &&
           frame.ch_layout.nb_channels == static_cast<int>(output_.channels) && !level_.has_gain();
}

// Appends `count` samples per channel to the FIFO. av_audio_fifo_write() only reads them, but its type is not const.
void AudioReader::store(void *samples, int count) {
    const int result = av_audio_fifo_write(fifo_.get(), &samples, count);
    if (result < 0) throw std::bad_alloc();
}

bool AudioReader::converter_fits(const AVFrame &frame) const {
    return converter_ && frame.format == converter_sample_format_ && frame.sample_rate == converter_rate_ &&
           av_channel_layout_compare(&frame.ch_layout, &converter_layout_) == 0;
}

void AudioReader::make_converter(const AVFrame &frame) {
    int result = av_channel_layout_copy(&converter_layout_, &frame.ch_layout);
    if (result >= 0) result = try_converter(frame, converter_layout_);
    if (result < 0) {
        // A layout that libswresample cannot mix is treated as the default one for this number of channels.
        ChannelLayout usual;
        av_channel_layout_default(&usual, frame.ch_layout.nb_channels);
        result = try_converter(frame, usual);
    }
    if (result < 0) {
        throw ProgramError(ExitCode::input, input_name(decoder_.path()),
                           "cannot convert its " + std::to_string(frame.ch_layout.nb_channels) + " channels at " +
                               std::to_string(frame.sample_rate) + " Hz");
    }
    converter_sample_format_ = frame.format;
    converter_rate_ = frame.sample_rate;
    converter_input_ = 0;
    converter_output_ = 0;
}

// Returns FFmpeg's result, negative on an error.
int AudioReader::try_converter(const AVFrame &frame, ChannelLayout &input_layout) {
    ChannelLayout layout;
    av_channel_layout_default(&layout, static_cast<int>(output_.channels));
    SwrContext *converter = nullptr;
    int result =
        swr_alloc_set_opts2(&converter, &layout, AV_SAMPLE_FMT_FLT, static_cast<int>(output_.rate), &input_layout,
                            static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
    converter_.reset(converter);
    const bool duplicates = input_layout.nb_channels == 1 && output_.channels == 2;
    if (result >= 0 && duplicates) result = swr_set_matrix(converter, unity_gains.data(), 1);
    // Limits the gain of mixing to 1. libswresample does so by default for integer samples only.
    if (result >= 0) result = av_opt_set_double(converter, "rematrix_maxval", 1, 0);
    return result >= 0 ? swr_init(converter) : result;
}

// Converts `count` samples per channel into the FIFO, or with nullptr and 0 samples that are still inside the
// converter. Returns the number of samples per channel that came out, at most `room`.
int AudioReader::convert(const uint8_t **samples, int count, int room) {
    converted_.resize(static_cast<size_t>(room) * output_.channels);
    auto *bytes = reinterpret_cast<uint8_t *>(converted_.data());  // NOLINT(*-reinterpret-cast): FFmpeg's sample type
    const int result = swr_convert(converter_.get(), &bytes, room, samples, count);
    if (result < 0) {
        throw ProgramError(ExitCode::input, input_name(decoder_.path()),
                           "cannot convert: " + ffmpeg_error_text(result));
    }
    levelled_.resize(converted_.size());
    level_.to_16_bits(std::span(converted_).first(static_cast<size_t>(result) * output_.channels), levelled_);
    store(levelled_.data(), result);
    converter_input_ += count;
    converter_output_ += result;
    return result;
}

void AudioReader::drain_converter() {
    if (!converter_) return;
    if (converter_output_ > 0) {
        while (convert(nullptr, 0, drain_samples) > 0) {
        }
    } else {
        // An input shorter than the resampling filter only comes out when silence follows.
        swr_inject_silence(converter_.get(), converter_rate_);
        convert(nullptr, 0,
                static_cast<int>(av_rescale_rnd(converter_input_, output_.rate, converter_rate_, AV_ROUND_UP)));
    }
    converter_.reset();
}

}  // namespace tavik
