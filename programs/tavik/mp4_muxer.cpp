// Configures libavformat's muxer. Times are in samples and start one frame before 0: from that the muxer writes the
// edit list, which tells players to skip the priming frame and the padding at the end.
#include "mp4_muxer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "audio_specific_config.h"
#include "bit_rates.h"
#include "ffmpeg_log.h"
#include "program_error.h"
#include "stream_encoder.h"

namespace tavik {
namespace {

constexpr int buffer_bytes = 32768;

// Start of the tag that names the program that made a file.
constexpr const char *encoding_tool = "Tavik ";

void copy_chapters(AVFormatContext &format, const AVFormatContext &source) {
    if (source.nb_chapters == 0) return;
    format.chapters = static_cast<AVChapter **>(av_calloc(source.nb_chapters, sizeof(AVChapter *)));
    if (format.chapters == nullptr) throw std::bad_alloc();
    for (unsigned i = 0; i < source.nb_chapters; ++i) {
        auto *chapter = static_cast<AVChapter *>(av_mallocz(sizeof(AVChapter)));
        if (chapter == nullptr) throw std::bad_alloc();
        const AVChapter &original = *source.chapters[i];
        *chapter = {.id = original.id,
                    .time_base = original.time_base,
                    .start = original.start,
                    .end = original.end,
                    .metadata = nullptr};
        format.chapters[format.nb_chapters++] = chapter;
        av_dict_copy(&chapter->metadata, original.metadata, 0);
    }
}

}  // namespace

bool is_made_by_tavik(const std::string &path) {
    take_ffmpeg_log();
    AVFormatContext *opened = nullptr;
    if (avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, nullptr) < 0) return false;
    const FfmpegHandle<AVFormatContext> format(opened);
    const AVDictionaryEntry *tool = av_dict_get(format->metadata, "encoder", nullptr, 0);
    return tool != nullptr && std::string(tool->value).starts_with(encoding_tool);
}

Mp4Muxer::Mp4Muxer(OutputFile &output, const EncoderConfig &config, const AudioDecoder &source, const Tags &tags,
                   std::optional<int64_t> fragment_samples)
    : output_(output),
      fragment_samples_(fragment_samples),
      start_(source.start_samples(config.sample_rate)),
      next_time_(start_ - TAVIK_FRAME_LENGTH),
      fragment_start_(next_time_) {
    take_ffmpeg_log();
    open_output();
    add_audio_stream(config, source.track().language);
    const std::string tool = encoding_tool + version_text(TAVIK_get_version());
    av_dict_set(&format_->metadata, "encoding_tool", tool.c_str(), 0);
    if (!fragment_samples_) {
        copy_chapters(*format_, source.container());
    } else {
        tagger_.emplace(tags);
    }
    write_header();
}

void Mp4Muxer::open_output() {
    auto *buffer = static_cast<uint8_t *>(av_malloc(buffer_bytes));
    if (buffer == nullptr) throw std::bad_alloc();
    io_ = own(avio_alloc_context(buffer, buffer_bytes, 1, this, nullptr, write_callback,
                                 fragment_samples_ ? nullptr : seek_callback));
    AVFormatContext *format = nullptr;
    check(avformat_alloc_output_context2(&format, nullptr, "ipod", nullptr));
    format_.reset(format);
    format->pb = io_.get();
    format->opaque = this;
    format->io_open = open_callback;
    format->io_close2 = close_callback;
}

void Mp4Muxer::add_audio_stream(const EncoderConfig &config, const std::string &language) {
    AVStream *stream = avformat_new_stream(format_.get(), nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    AVCodecParameters &parameters = *stream->codecpar;
    set_extradata(parameters, audio_specific_config(config));
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = AV_CODEC_ID_AAC;
    parameters.profile = FF_PROFILE_AAC_LOW;
    parameters.sample_rate = static_cast<int>(config.sample_rate);
    parameters.bit_rate = int64_t{config.bit_rate} * channel_count(config);
    parameters.frame_size = TAVIK_FRAME_LENGTH;
    parameters.initial_padding = TAVIK_FRAME_LENGTH;
    av_channel_layout_default(&parameters.ch_layout, static_cast<int>(channel_count(config)));
    stream->time_base = {1, parameters.sample_rate};
    if (!language.empty()) av_dict_set(&stream->metadata, "language", language.c_str(), 0);
}

void Mp4Muxer::write_header() {
    AVDictionary *options = nullptr;
    // The unit of durations in the edit list, which have to be exact to the sample.
    av_dict_set_int(&options, "movie_timescale", format_->streams[0]->codecpar->sample_rate, 0);
    // skip_trailer omits the index of fragments at the end. It would grow in memory, and its offsets would be wrong
    // after tags have been inserted into the header.
    const char *flags = fragment_samples_ ? "frag_custom+delay_moov+default_base_moof+skip_trailer" : "faststart";
    av_dict_set(&options, "movflags", flags, 0);
    const int result = avformat_write_header(format_.get(), &options);
    av_dict_free(&options);
    check(result);
}

void Mp4Muxer::write(std::span<const uint8_t> frame, uint64_t samples) {
    const auto packet = new_packet(frame);
    packet->pts = packet->dts = next_time_;
    packet->duration = std::min<int64_t>(TAVIK_FRAME_LENGTH, start_ + static_cast<int64_t>(samples) - next_time_);
    packet->flags |= AV_PKT_FLAG_KEY;
    next_time_ += TAVIK_FRAME_LENGTH;
    check(av_write_frame(format_.get(), packet.get()));
    if (fragment_samples_ && next_time_ - fragment_start_ >= *fragment_samples_) end_fragment();
}

void Mp4Muxer::end_fragment() {
    // With delay_moov, the first call writes only the header of the file.
    if (std::exchange(is_first_fragment_, false)) check(av_write_frame(format_.get(), nullptr));
    check(av_write_frame(format_.get(), nullptr));
    avio_flush(io_.get());
    check(io_->error);
    fragment_start_ = next_time_;
}

void Mp4Muxer::finish() {
    check(av_write_trailer(format_.get()));
    avio_flush(io_.get());
    check(io_->error);
}

// Throws for the negative result of an FFmpeg function. An error of the output comes first, as it is the cause.
void Mp4Muxer::check(int result) {
    if (error_) std::rethrow_exception(error_);
    if (result >= 0) return;
    const std::string reason = take_ffmpeg_log().first_error;
    throw ProgramError(ExitCode::output, output_.name(), reason.empty() ? ffmpeg_error_text(result) : reason);
}

template <typename Byte>
int Mp4Muxer::write_callback(void *muxer, Byte *bytes, int count) {
    auto &self = *static_cast<Mp4Muxer *>(muxer);
    try {
        std::span<const uint8_t> written(bytes, static_cast<size_t>(count));
        if (self.tagger_) written = self.tagger_->process(written);
        if (!self.error_) self.output_.write(written);
    } catch (...) {
        self.error_ = std::current_exception();
    }
    return self.error_ ? AVERROR(EIO) : count;
}

int64_t Mp4Muxer::seek_callback(void *muxer, int64_t offset, int whence) {
    if ((whence & AVSEEK_SIZE) != 0) return AVERROR(ENOSYS);
    const int64_t position = static_cast<Mp4Muxer *>(muxer)->output_.seek(offset, whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : position;
}

// To move the index to the front, libavformat opens its output a second time and reads what it has written.
int Mp4Muxer::open_callback(AVFormatContext *format, AVIOContext **io, const char * /*url*/, int /*flags*/,
                            AVDictionary ** /*options*/) {
    auto *buffer = static_cast<uint8_t *>(av_malloc(buffer_bytes));
    if (buffer == nullptr) return AVERROR(ENOMEM);
    *io = avio_alloc_context(buffer, buffer_bytes, 0, format->opaque, read_callback, nullptr, read_seek_callback);
    if (*io == nullptr) av_free(buffer);
    return *io == nullptr ? AVERROR(ENOMEM) : 0;
}

int Mp4Muxer::close_callback(AVFormatContext * /*format*/, AVIOContext *io) {
    const FfmpegHandle<AVIOContext> closed(io);
    return 0;
}

int Mp4Muxer::read_callback(void *muxer, uint8_t *bytes, int room) {
    auto &self = *static_cast<Mp4Muxer *>(muxer);
    const int64_t count = self.output_.read_at(self.read_position_, {bytes, static_cast<size_t>(room)});
    if (count < 0) {
        const std::string reason = "cannot read back: " + std::generic_category().message(errno);
        self.error_ = std::make_exception_ptr(ProgramError(ExitCode::output, self.output_.name(), reason));
        return AVERROR(EIO);
    }
    self.read_position_ += static_cast<uint64_t>(count);
    return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

int64_t Mp4Muxer::read_seek_callback(void *muxer, int64_t offset, int whence) {
    if (whence != SEEK_SET) return AVERROR(ENOSYS);
    static_cast<Mp4Muxer *>(muxer)->read_position_ = static_cast<uint64_t>(offset);
    return offset;
}

}  // namespace tavik
