// Damage is whatever a library function returns or logs as an error; the first is kept and decoding goes on behind it.
#include "audio_decoder.h"

#include <fmt/format.h>

#include <array>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include "ffmpeg_log.h"
#include "file_names.h"
#include "ogg_end.h"
#include "program_error.h"

namespace tavik {
namespace {

using namespace std::string_view_literals;

// Lossless formats count samples; in others, encoder delay and padding may or may not be in the count, and are a few
// thousand samples.
constexpr double lossless_tolerance = 0.001;  // seconds
constexpr double lossy_tolerance = 0.5;

constexpr double alac_packet = 4096;  // samples

// Damage so close to the end belongs to a file that was cut off.
constexpr double end_of_file_seconds = 0.5;

bool is_lossless(const AVCodecParameters &parameters) {
    const AVCodecDescriptor *descriptor = avcodec_descriptor_get(parameters.codec_id);
    return descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
           (descriptor->props & AV_CODEC_PROP_LOSSY) == 0;
}

std::string layout_text(const PcmFormat &pcm) {
    std::array<char, 256> text{};
    AVChannelLayout layout{};
    const bool is_known = pcm.channel_mask != 0 && av_channel_layout_from_mask(&layout, pcm.channel_mask) == 0 &&
                          av_channel_layout_describe(&layout, text.data(), text.size()) > 0;
    return is_known ? text.data() : fmt::format("{} channels", pcm.channels);
}

bool is_pcm(const AVCodecParameters &parameters) {
    return parameters.codec_id >= AV_CODEC_ID_FIRST_AUDIO && parameters.codec_id < AV_CODEC_ID_ADPCM_IMA_QT &&
           parameters.sample_rate > 0 && parameters.ch_layout.nb_channels > 0;
}

// As the headers of the file give them, in units of each stream; once packets are read, what is missing is estimated.
std::vector<int64_t> declared_durations(const AVFormatContext &format) {
    std::vector<int64_t> durations;
    for (unsigned i = 0; i < format.nb_streams; ++i) durations.push_back(format.streams[i]->duration);
    return durations;
}

}  // namespace

AudioDecoder::AudioDecoder(std::string path, std::optional<PcmFormat> pcm)
    : path_(std::move(path)), packet_(own(av_packet_alloc())), frame_(own(av_frame_alloc())) {
    take_ffmpeg_log();
    check_file();
    if (StreamInput::suits(path_)) open_stream(pcm);
    open_format(pcm);
    const std::vector<int64_t> declared = declared_durations(*format_);
    find_stream_information();
    open_codec();
    const bool is_pipe = stream_ && !stream_->is_seekable();
    if (take_ffmpeg_log().open_ended_file || pcm || is_pipe) open_ended_ = true;
    const auto index = static_cast<size_t>(stream_index_);
    if (!declared_seconds_ && index < declared.size() && declared[index] > 0) {
        declared_seconds_ = static_cast<double>(declared[index]) * av_q2d(stream().time_base);
    }
    check_end();
}

void AudioDecoder::check_file() const {
    if (path_ == standard_stream) return;
    std::error_code no_size;
    if (std::filesystem::is_directory(path_, no_size)) fail("is a directory");
    if (std::filesystem::file_size(path_, no_size) == 0 && !no_size) fail("is empty");
}

// Samples behind a WAV header are read as those without one.
void AudioDecoder::open_stream(std::optional<PcmFormat> &pcm) {
    stream_.emplace(path_, !pcm);
    const std::optional<WavHeader> &header = stream_->wav_header();
    if (!header || stream_->is_seekable()) return;
    pcm = header->format;
    note_wav_length(*header);
}

void AudioDecoder::note_wav_length(const WavHeader &header) {
    declared_seconds_ = header.seconds;
    open_ended_ = !header.seconds;
}

void AudioDecoder::open_format(const std::optional<PcmFormat> &pcm) {
    AVDictionary *options = nullptr;
    const AVInputFormat *demuxer = nullptr;
    if (pcm) {
        demuxer = av_find_input_format(pcm->sample_format.c_str());
        av_dict_set_int(&options, "sample_rate", pcm->rate, 0);
        av_dict_set(&options, "ch_layout", layout_text(*pcm).c_str(), 0);
    }
    // Playlists and the like must not lead to other places.
    av_dict_set(&options, "protocol_whitelist", "file,pipe", 0);
    AVFormatContext *format = avformat_alloc_context();
    if (format == nullptr) throw std::bad_alloc();
    if (stream_) format->pb = stream_->io();
    // The prefix keeps a colon in the name from being read as a protocol.
    const std::string url = stream_ ? "" : "file:" + path_;
    const int result = avformat_open_input(&format, url.c_str(), demuxer, &options);
    av_dict_free(&options);
    if (result == AVERROR_EOF) fail("has no audio");
    if (result == AVERROR_INVALIDDATA || result == AVERROR(EINVAL)) {
        const std::string reason = take_ffmpeg_log().first_error;
        fail("not an audio file" + (reason.empty() ? "" : " (" + reason + ")"));
    }
    if (result < 0) fail("cannot open: " + ffmpeg_error_text(result));
    format_.reset(format);
}

// Reads ahead where the header does not tell all. Samples without compression need nothing else, and may come live:
// reading ahead takes about a second of them.
void AudioDecoder::find_stream_information() {
    const bool is_uncompressed = format_->nb_streams == 1 && is_pcm(*format_->streams[0]->codecpar);
    if (is_uncompressed) return;
    if (const int error = avformat_find_stream_info(format_.get(), nullptr); error < 0) fail(ffmpeg_error_text(error));
}

// Looks at files themselves where libavformat makes up for what is missing at the end.
void AudioDecoder::check_end() {
    if (stream_ && !stream_->is_seekable()) return;
    const std::string path = stream_ ? "/dev/stdin" : path_;
    const std::string_view name = format_->iformat->name;
    if (name == "ogg") is_cut_off_ = lacks_ogg_end(path);
    if (name == "wav") {
        const std::optional<WavHeader> header = stream_ ? stream_->wav_header() : wav_header_of(path);
        if (header) note_wav_length(*header);
    }
}

void AudioDecoder::open_codec() {
    const AVCodec *codec = nullptr;
    stream_index_ = av_find_best_stream(format_.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (stream_index_ == AVERROR_DECODER_NOT_FOUND) fail("no decoder for its audio");
    if (stream_index_ < 0) fail("no audio stream");
    for (int i = 0; i < static_cast<int>(format_->nb_streams); ++i) {
        if (i != stream_index_) format_->streams[i]->discard = AVDISCARD_ALL;
    }

    codec_ = own(avcodec_alloc_context3(codec));
    codec_->pkt_timebase = stream().time_base;  // for the removal of encoder delay and padding
    int result = avcodec_parameters_to_context(codec_.get(), stream().codecpar);
    if (result >= 0) result = avcodec_open2(codec_.get(), codec, nullptr);
    if (result < 0) fail("cannot decode: " + ffmpeg_error_text(result));
}

const AVFrame *AudioDecoder::next() {
    for (;;) {
        const int result = avcodec_receive_frame(codec_.get(), frame_.get());
        note_logged_damage();
        if (result == AVERROR_EOF) return nullptr;
        if (result >= 0) {
            if (complete_frame()) return frame_.get();
            continue;
        }
        if (result != AVERROR(EAGAIN)) note_damage(result);
        if (!feed()) return nullptr;
    }
}

// Gives the codec its next packet or the end of the input; false when it has had the latter.
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

// Reads the next packet of the chosen stream; the result is FFmpeg's.
int AudioDecoder::read_packet() {
    for (;;) {
        const int result = av_read_frame(format_.get(), packet_.get());
        if (result < 0 || packet_->stream_index == stream_index_) return result;
        av_packet_unref(packet_.get());
    }
}

// Accounts for a decoded frame and gives it a channel layout if it lacks one; false when it is of no use.
bool AudioDecoder::complete_frame() {
    if ((frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0 && !open_ended_) note_damage("incomplete data");
    if (frame_->nb_samples <= 0 || frame_->sample_rate <= 0 || frame_->ch_layout.nb_channels <= 0) return false;
    if (frame_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&frame_->ch_layout, frame_->ch_layout.nb_channels);
    }
    seconds_ += static_cast<double>(frame_->nb_samples) / frame_->sample_rate;
    return true;
}

std::optional<double> AudioDecoder::duration() const {
    if (declared_seconds_) return declared_seconds_;
    if (open_ended_ || format_->duration <= 0) return std::nullopt;
    return static_cast<double>(format_->duration) / AV_TIME_BASE;
}

// What a file may be shorter than its header says.
double AudioDecoder::tolerance() const {
    const AVCodecParameters &parameters = *stream().codecpar;
    if (!is_lossless(parameters)) return lossy_tolerance;
    // CAF counts whole packets, also where the last one is not full.
    const bool counts_packets = parameters.codec_id == AV_CODEC_ID_ALAC && format_->iformat->name == "caf"sv;
    return counts_packets ? alac_packet / parameters.sample_rate : lossless_tolerance;
}

bool AudioDecoder::is_truncated() const {
    return is_cut_off_ || (declared_seconds_ && seconds_ < *declared_seconds_ - tolerance());
}

// Behind the last sample, such as the tag of another format, or the trace of a cut that is reported as such.
bool AudioDecoder::is_unimportant(const Damage &damage) const {
    if (is_truncated()) return damage.seconds > seconds_ - end_of_file_seconds;
    return declared_seconds_ && damage.seconds >= *declared_seconds_ - tolerance();
}

std::optional<std::string> AudioDecoder::damage() const {
    if (damage_ && !is_unimportant(*damage_)) {
        return fmt::format("damaged at {:.3f} s ({})", damage_->seconds, damage_->reason);
    }
    if (!is_truncated()) return std::nullopt;
    if (is_cut_off_) return fmt::format("truncated: ends after {:.3f} s", seconds_);
    return fmt::format("truncated: {:.3f} s of {:.3f} s", seconds_, *declared_seconds_);
}

// Prefers what the libraries said about the error to its number.
void AudioDecoder::note_damage(int error) {
    note_logged_damage();
    note_damage(ffmpeg_error_text(error));
}

void AudioDecoder::note_logged_damage() {
    const std::string reason = take_ffmpeg_log().first_error;
    if (!reason.empty()) note_damage(reason);
}

void AudioDecoder::note_damage(const std::string &reason) {
    if (!damage_) damage_ = Damage{seconds_, reason};
}

void AudioDecoder::fail(const std::string &problem) const {
    throw ProgramError(ExitCode::input, input_name(path_), problem);
}

}  // namespace tavik
