// Errors that a library function returns or logs count as damage. The first one is kept, and decoding continues.
#include "audio_decoder.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include <fmt/format.h>
#include <strings.h>
#include <taglib/oggfile.h>
#include <taglib/oggpageheader.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#include "ffmpeg_log.h"
#include "file_names.h"
#include "interruption.h"
#include "program_error.h"

namespace tavik {
namespace {

using namespace std::string_view_literals;

// Tolerances for the declared length. Lossless formats declare the exact number of samples; in lossy formats it may or
// may not include encoder delay and padding, a few thousand samples.
constexpr double lossless_tolerance = 0.001;  // seconds
constexpr double lossy_tolerance = 0.5;       // seconds

constexpr double alac_packet_samples = 4096;

// Damage this close to the end is a consequence of truncation.
constexpr double end_of_file_seconds = 0.5;

// Tolerances for time stamps: shorter than usual frames, longer than the jitter of common recorders. In Ogg only pages
// have time stamps, and libavformat estimates those of the packets in between.
constexpr double time_tolerance = 0.01;     // seconds
constexpr double ogg_time_tolerance = 0.1;  // seconds

constexpr int64_t max_silence_samples = 4096;  // per frame of silence

bool is_lossless(const AVCodecParameters &parameters) {
    const AVCodecDescriptor *descriptor = avcodec_descriptor_get(parameters.codec_id);
    return descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
           (descriptor->props & AV_CODEC_PROP_LOSSY) == 0;
}

bool is_pcm(const AVCodecParameters &parameters) {
    return parameters.codec_id >= AV_CODEC_ID_FIRST_AUDIO && parameters.codec_id < AV_CODEC_ID_ADPCM_IMA_QT &&
           parameters.sample_rate > 0 && parameters.ch_layout.nb_channels > 0;
}

// Number of audio and video streams, without attached pictures.
int64_t count_timed_streams(const AVFormatContext &format) {
    return std::count_if(format.streams, format.streams + format.nb_streams, [](const AVStream *stream) {
        const bool is_picture = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        return !is_picture && (stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO ||
                               stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO);
    });
}

// Size of the samples as a WAV file declares it, in the 4 bytes before the first sample. libavformat discards this size
// if the file is shorter, but here it shows that the file is truncated. A recorder that writes to a pipe or is killed
// leaves a placeholder: 0, or a number close to 2^31 or 2^32.
std::optional<int64_t> declared_wav_bytes(std::span<const uint8_t> size) {
    const int64_t bytes = AV_RL32(size.data());
    const bool is_placeholder = bytes == 0 || (bytes >= 0x7FFF'0000 && bytes <= 0x8000'0100) || bytes >= 0xFFFF'0000;
    return is_placeholder ? std::nullopt : std::optional(bytes);
}

// Gives access to the pages of any Ogg file.
class OggFile : public TagLib::Ogg::File {
 public:
    explicit OggFile(const std::string &path) : File(path.c_str()) {}
    TagLib::Tag *tag() const override { return nullptr; }
    TagLib::AudioProperties *audioProperties() const override { return nullptr; }
    bool save() override { return false; }
};

// Whether the last page of an Ogg file is incomplete or not marked as the last page of its stream (RFC 3533).
bool lacks_ogg_end(const std::string &path) {
    OggFile file(path);
    const auto last = file.rfind("OggS");
    const TagLib::Ogg::PageHeader page(&file, last);
    return last < 0 || !page.isValid() || !page.lastPageOfStream() ||
           last + page.size() + page.dataSize() > file.length();
}

std::string language_of(const AVStream &stream) {
    const AVDictionaryEntry *language = av_dict_get(stream.metadata, "language", nullptr, 0);
    return language != nullptr && language->value != "und"sv ? language->value : "";
}

std::vector<const AVStream *> audio_streams(const AVFormatContext &format) {
    std::vector<const AVStream *> streams;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        if (format.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) streams.push_back(format.streams[i]);
    }
    return streams;
}

// Numbers and languages of audio streams, such as "1 (eng), 2, 3 (deu)".
std::string list_text(const std::vector<const AVStream *> &streams) {
    std::string text;
    for (size_t i = 0; i < streams.size(); ++i) {
        const std::string language = language_of(*streams[i]);
        text += fmt::format("{}{}{}", i == 0 ? "" : ", ", i + 1, language.empty() ? "" : " (" + language + ")");
    }
    return text;
}

}  // namespace

AudioDecoder::AudioDecoder(Source source)
    : source_(std::move(source)),
      packet_(own(av_packet_alloc())),
      frame_(own(av_frame_alloc())),
      next_frame_(own(av_frame_alloc())),
      silence_(own(av_frame_alloc())) {
    take_ffmpeg_log();
    check_file();
    if (StreamInput::is_stream(source_.path)) stream_.emplace(source_.path);
    open_format();
    const std::vector<std::optional<double>> lengths = declared_lengths();
    find_stream_information();
    choose_stream();
    open_codec();
    const auto index = static_cast<size_t>(stream_index_);
    if (index < lengths.size()) declared_seconds_ = lengths[index];
    detect_missing_end();
    if (source_.checks_md5) checksum_ = SampleChecksum::of(stream());
    timeline_ =
        Timeline(is_ogg() ? ogg_time_tolerance : time_tolerance, (format_->iformat->flags & AVFMT_TS_DISCONT) != 0);
}

void AudioDecoder::check_file() const {
    if (source_.path == standard_stream) return;
    std::error_code no_size;
    if (std::filesystem::is_directory(source_.path, no_size)) fail("is a directory");
    if (std::filesystem::file_size(source_.path, no_size) == 0 && !no_size) fail("is empty");
}

void AudioDecoder::open_format() {
    AVDictionary *options = nullptr;
    const AVInputFormat *demuxer = nullptr;
    if (source_.pcm) {
        demuxer = av_find_input_format(source_.pcm->sample_format.c_str());
        av_dict_set_int(&options, "sample_rate", source_.pcm->rate, 0);
        av_dict_set(&options, "ch_layout", fmt::format("{} channels", source_.pcm->channels).c_str(), 0);
    }
    // Playlists must not make libavformat open network addresses.
    av_dict_set(&options, "protocol_whitelist", "file,pipe", 0);
    AVFormatContext *format = avformat_alloc_context();
    if (format == nullptr) throw std::bad_alloc();
    if (stream_) format->pb = stream_->io();
    // With this prefix, a colon in the name is not taken for the end of a protocol name.
    const std::string url = stream_ ? "" : "file:" + source_.path;
    const int result = avformat_open_input(&format, url.c_str(), demuxer, &options);
    av_dict_free(&options);
    const std::string reason = result < 0 ? take_ffmpeg_log().first_error : "";
    if (result == AVERROR_EOF) fail("has no audio");
    if (result == AVERROR_INVALIDDATA || result == AVERROR(EINVAL)) {
        fail("not an audio file" + (reason.empty() ? "" : " (" + reason + ")"));
    }
    if (result < 0) fail("cannot open: " + ffmpeg_error_text(result));
    format_.reset(format);
}

// Reads packets ahead to find properties that the header does not contain. Skipped for PCM, whose header is complete:
// in a live input it would wait for about a second of samples.
void AudioDecoder::find_stream_information() {
    const bool is_uncompressed = format_->nb_streams == 1 && is_pcm(*format_->streams[0]->codecpar);
    if (is_uncompressed) return;
    if (const int error = avformat_find_stream_info(format_.get(), nullptr); error < 0) fail(ffmpeg_error_text(error));
}

// Length of each stream in seconds as declared by the headers. To be called before packets are read, which replaces
// missing lengths by estimates.
std::vector<std::optional<double>> AudioDecoder::declared_lengths() const {
    std::vector<std::optional<double>> lengths;
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        const AVStream &media = *format_->streams[i];
        const bool is_known = media.duration > 0;
        lengths.push_back(is_known ? std::optional(static_cast<double>(media.duration) * av_q2d(media.time_base))
                                   : std::nullopt);
    }
    if (const auto length = declared_wav_length()) lengths[0] = length;
    return lengths;
}

std::optional<double> AudioDecoder::declared_wav_length() const {
    if (!is_wav() || format_->nb_streams == 0) return std::nullopt;
    const AVCodecParameters &parameters = *format_->streams[0]->codecpar;
    std::array<uint8_t, 4> size{};
    if (!is_pcm(parameters) || parameters.block_align <= 0 || !read_before_samples(size)) return std::nullopt;
    const auto bytes = declared_wav_bytes(size);
    if (!bytes) return std::nullopt;
    const int64_t samples = *bytes / parameters.block_align;
    return static_cast<double>(samples) / parameters.sample_rate;
}

// Reads the bytes before the first packet. To be called while only the header has been read.
bool AudioDecoder::read_before_samples(std::span<uint8_t> bytes) const {
    const int64_t position = avio_tell(format_->pb) - std::ssize(bytes);
    if (is_pipe()) return stream_->read_again(position, bytes);
    return avio_seek(format_->pb, position, SEEK_SET) >= 0 &&
           avio_read(format_->pb, bytes.data(), static_cast<int>(bytes.size())) == std::ssize(bytes);
}

bool AudioDecoder::is_pipe() const { return stream_ && !stream_->is_seekable(); }

bool AudioDecoder::is_ogg() const { return format_->iformat->name == "ogg"sv; }

bool AudioDecoder::is_wav() const { return format_->iformat->name == "wav"sv; }

// Ogg files are checked here because libavformat hides that the end of one is missing.
void AudioDecoder::detect_missing_end() {
    open_ended_ = !declared_seconds_ && (source_.pcm || is_wav() || is_pipe());
    if (is_ogg() && !is_pipe()) is_cut_off_ = lacks_ogg_end(stream_ ? "/dev/stdin" : source_.path);
}

void AudioDecoder::choose_stream() {
    const auto streams = audio_streams(*format_);
    int wanted = -1;
    if (!source_.language.empty()) {
        const auto found = std::ranges::find_if(streams, [this](const AVStream *stream) {
            return ::strcasecmp(language_of(*stream).c_str(), source_.language.c_str()) == 0;
        });
        if (found != streams.end()) wanted = (*found)->index;
    } else if (source_.track > 0 && source_.track <= streams.size()) {
        wanted = streams[source_.track - 1]->index;
    }
    const AVCodec *decoder = nullptr;
    stream_index_ = av_find_best_stream(format_.get(), AVMEDIA_TYPE_AUDIO, wanted, -1, &decoder, 0);
    if (stream_index_ == AVERROR_DECODER_NOT_FOUND) fail("no decoder for its audio");
    if (stream_index_ < 0) fail("no audio stream");
    const bool is_chosen = source_.track > 0 || !source_.language.empty();
    if (is_chosen && wanted < 0) fail("no such audio track, it has " + list_text(streams));
    for (int i = 0; i < static_cast<int>(format_->nb_streams); ++i) {
        if (i != stream_index_) format_->streams[i]->discard = AVDISCARD_ALL;
    }
}

void AudioDecoder::open_codec() {
    const AVCodec *codec = avcodec_find_decoder(stream().codecpar->codec_id);
    codec_ = own(avcodec_alloc_context3(codec));
    codec_->pkt_timebase = stream().time_base;  // for the removal of encoder delay and padding
    codec_->err_recognition = AV_EF_CRCCHECK;
    int result = avcodec_parameters_to_context(codec_.get(), stream().codecpar);
    if (result >= 0) result = avcodec_open2(codec_.get(), codec, nullptr);
    if (result < 0) fail("cannot decode: " + ffmpeg_error_text(result));
}

Track AudioDecoder::track() const {
    const auto streams = audio_streams(*format_);
    const auto place = std::ranges::find(streams, &stream()) - streams.begin();
    return {static_cast<unsigned>(place + 1), static_cast<unsigned>(streams.size()), language_of(stream())};
}

const AVFrame *AudioDecoder::next() {
    if (!has_frame_) has_frame_ = decode();
    if (!has_frame_) return nullptr;
    if (silence_left_ > 0) return silent_frame();
    has_frame_ = false;
    return frame_.get();
}

// Decodes the next frame that is not cut completely, and sets the silence before it; false at the end.
bool AudioDecoder::decode() {
    do {
        if (has_next_frame_) std::swap(frame_, next_frame_);
        if (!std::exchange(has_next_frame_, false) && !receive()) return false;
        place_frame();
    } while (frame_->nb_samples == 0);
    return true;
}

// Gets the next frame from the codec; false at the end.
bool AudioDecoder::receive() {
    for (;;) {
        const int result = avcodec_receive_frame(codec_.get(), frame_.get());
        note_logged_damage();
        if (result == AVERROR_EOF) {
            is_checksum_wrong_ = is_checksum_wrong_ || (checksum_ && !checksum_->matches());
            checksum_.reset();
            return false;
        }
        if (result >= 0) {
            if (accept_frame()) return true;
            continue;
        }
        if (result != AVERROR(EAGAIN)) note_damage(result);
        if (!feed()) return false;
    }
}

// Sends the next packet to the codec, or the end of the input; false if the end has already been sent.
bool AudioDecoder::feed() {
    if (draining_) return false;
    const int read_result = read_packet();
    if (read_result < 0) {
        const int file_error = format_->pb != nullptr ? format_->pb->error : 0;
        if (read_result != AVERROR_EOF) note_damage(read_result);
        if (file_error < 0 && file_error != AVERROR_EOF) note_damage(file_error);
        draining_ = true;
        avcodec_send_packet(codec_.get(), nullptr);
        return true;
    }
    if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0 && !open_ended_) note_damage("incomplete data");
    const int send_result = avcodec_send_packet(codec_.get(), packet_.get());
    if (send_result < 0) note_damage(send_result);
    av_packet_unref(packet_.get());
    return true;
}

// Reads the next packet of the chosen stream; returns FFmpeg's result.
int AudioDecoder::read_packet() {
    // After an interruption, a StreamInput still delivers the bytes that have arrived, and then its own end.
    if (!stream_ && input_has_ended()) return AVERROR_EOF;
    for (;;) {
        const int result = av_read_frame(format_.get(), packet_.get());
        if (result < 0 || packet_->stream_index == stream_index_) return result;
        av_packet_unref(packet_.get());
    }
}

// Checks a decoded frame and sets its channel layout if it has none; false if the frame cannot be used.
bool AudioDecoder::accept_frame() {
    if ((frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0 && !open_ended_) note_damage("incomplete data");
    if (frame_->nb_samples <= 0 || frame_->sample_rate <= 0 || frame_->ch_layout.nb_channels <= 0) return false;
    if (frame_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&frame_->ch_layout, frame_->ch_layout.nb_channels);
    }
    if (checksum_) checksum_->add(*frame_);
    return true;
}

void AudioDecoder::place_frame() {
    const bool is_first = timeline_.position() == 0;
    const std::optional<double> time = frame_seconds();
    const std::optional<double> next_time = timeline_.is_suspect(time) ? next_frame_seconds() : std::nullopt;
    const Placement placement = timeline_.place(time, next_time, frame_->nb_samples, frame_->sample_rate);
    if (is_first) late_start_ = static_cast<double>(placement.silence) / frame_->sample_rate;
    if (!is_first || !source_.keeps_start) silence_left_ = placement.silence;
    cut_frame(placement.cut);
}

// Decodes one frame ahead and returns its time stamp.
std::optional<double> AudioDecoder::next_frame_seconds() {
    std::swap(frame_, next_frame_);
    has_next_frame_ = receive();
    const auto time = has_next_frame_ ? frame_seconds() : std::nullopt;
    std::swap(frame_, next_frame_);
    return time;
}

// Time stamp of the frame in seconds from the start of the file. If the audio is the only stream, the file starts with
// its first frame.
std::optional<double> AudioDecoder::frame_seconds() {
    if (frame_->best_effort_timestamp == AV_NOPTS_VALUE) return std::nullopt;
    const double time = static_cast<double>(frame_->best_effort_timestamp) * av_q2d(stream().time_base);
    if (!file_start_) {
        const bool is_alone = count_timed_streams(*format_) == 1 || format_->start_time == AV_NOPTS_VALUE;
        file_start_ = is_alone ? time : static_cast<double>(format_->start_time) / AV_TIME_BASE;
    }
    return time - *file_start_;
}

// Removes `samples` samples per channel from the start of the frame.
void AudioDecoder::cut_frame(int64_t samples) {
    const auto format = static_cast<AVSampleFormat>(frame_->format);
    const bool is_planar = av_sample_fmt_is_planar(format) != 0;
    const int channels = frame_->ch_layout.nb_channels;
    const int64_t bytes = samples * av_get_bytes_per_sample(format) * (is_planar ? 1 : channels);
    for (int i = 0; i < (is_planar ? channels : 1); ++i) frame_->extended_data[i] += bytes;
    frame_->nb_samples -= static_cast<int>(samples);
}

// Returns the next part of the silence before the frame, in the frame's format.
const AVFrame *AudioDecoder::silent_frame() {
    av_frame_unref(silence_.get());
    silence_->format = frame_->format;
    silence_->sample_rate = frame_->sample_rate;
    silence_->nb_samples = static_cast<int>(std::min(silence_left_, max_silence_samples));
    int result = av_channel_layout_copy(&silence_->ch_layout, &frame_->ch_layout);
    if (result >= 0) result = av_frame_get_buffer(silence_.get(), 0);
    if (result < 0) throw std::bad_alloc();
    av_samples_set_silence(silence_->extended_data, 0, silence_->nb_samples, silence_->ch_layout.nb_channels,
                           static_cast<AVSampleFormat>(silence_->format));
    silence_left_ -= silence_->nb_samples;
    return silence_.get();
}

std::optional<double> AudioDecoder::duration() const {
    if (declared_seconds_) return declared_seconds_;
    if (open_ended_ || format_->duration <= 0) return std::nullopt;
    return static_cast<double>(format_->duration) / AV_TIME_BASE;
}

// Seconds by which a complete file may be shorter than declared.
double AudioDecoder::tolerance() const {
    const AVCodecParameters &parameters = *stream().codecpar;
    if (!is_lossless(parameters)) return lossy_tolerance;
    // CAF declares the length in whole packets, even if the last one is not full.
    const bool counts_packets = parameters.codec_id == AV_CODEC_ID_ALAC && format_->iformat->name == "caf"sv;
    return counts_packets ? alac_packet_samples / parameters.sample_rate : lossless_tolerance;
}

bool AudioDecoder::is_truncated() const {
    if (input_has_ended()) return false;
    return is_cut_off_ || (declared_seconds_ && timeline_.position() < *declared_seconds_ - tolerance());
}

// Damage after the last sample, such as a tag of another format, or a consequence of truncation, which is reported.
bool AudioDecoder::is_ignorable(const Damage &damage) const {
    if (is_truncated() || input_has_ended()) return damage.seconds > seconds() - end_of_file_seconds;
    return declared_seconds_ && damage.seconds >= *declared_seconds_ - tolerance();
}

std::optional<std::string> AudioDecoder::damage() const {
    if (damage_ && !is_ignorable(*damage_)) {
        return fmt::format("damaged at {:.3f} s ({})", damage_->seconds, damage_->reason);
    }
    if (is_cut_off_) return fmt::format("truncated: ends after {:.3f} s", seconds());
    if (is_truncated()) return fmt::format("truncated: {:.3f} s of {:.3f} s", seconds(), *duration());
    if (is_checksum_wrong_) return "damaged (the MD5 checksum of its samples does not match)";
    return std::nullopt;
}

std::string AudioDecoder::why_no_samples() const {
    const bool is_mp4 = std::string_view(format_->iformat->name).starts_with("mov,");
    if (is_mp4 && is_pipe()) return "an MP4 file with its index at the end cannot be read from a pipe";
    const auto found = damage();
    return "no audio samples" + (found ? " (" + *found + ")" : "");
}

// Prefers the message that the libraries logged to the text of the error number.
void AudioDecoder::note_damage(int error) {
    note_logged_damage();
    note_damage(ffmpeg_error_text(error));
}

void AudioDecoder::note_logged_damage() {
    const std::string reason = take_ffmpeg_log().first_error;
    if (!reason.empty()) note_damage(reason);
}

void AudioDecoder::note_damage(const std::string &reason) {
    if (!damage_) damage_ = Damage{seconds(), reason};
}

void AudioDecoder::fail(const std::string &problem) const {
    throw ProgramError(ExitCode::input, input_name(source_.path), problem);
}

}  // namespace tavik
