// Damage is whatever a library function returns or logs as an error; the first is kept and decoding goes on behind it.
#include "audio_decoder.h"

#include <filesystem>
#include <utility>

#include "ffmpeg_log.h"
#include "program_error.h"

namespace tavik {

AudioDecoder::AudioDecoder(std::string path)
    : path_(std::move(path)), packet_(own(av_packet_alloc())), frame_(own(av_frame_alloc())) {
    capture_ffmpeg_log();
    open_file();
    open_codec();
    const bool seekable = format_->pb != nullptr && (format_->pb->seekable & AVIO_SEEKABLE_NORMAL) != 0;
    open_ended_ = take_ffmpeg_log().open_ended_file || !seekable;
}

void AudioDecoder::open_file() {
    std::error_code no_size;
    if (std::filesystem::is_directory(path_, no_size)) fail("is a directory");
    if (std::filesystem::file_size(path_, no_size) == 0 && !no_size) fail("is empty");

    // The prefix keeps a colon in the name from being read as a protocol.
    AVFormatContext *format = nullptr;
    const int result = avformat_open_input(&format, ("file:" + path_).c_str(), nullptr, nullptr);
    if (result == AVERROR_INVALIDDATA || result == AVERROR_EOF) fail("not an audio file");
    if (result < 0) fail("cannot open: " + ffmpeg_error_text(result));
    format_.reset(format);
    if (const int error = avformat_find_stream_info(format, nullptr); error < 0) fail(ffmpeg_error_text(error));
}

void AudioDecoder::open_codec() {
    const AVCodec *codec = nullptr;
    stream_index_ = av_find_best_stream(format_.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (stream_index_ == AVERROR_DECODER_NOT_FOUND) fail("no decoder for its audio");
    if (stream_index_ < 0) fail("no audio stream");
    const AVStream *stream = format_->streams[stream_index_];
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        if (format_->streams[i] != stream) format_->streams[i]->discard = AVDISCARD_ALL;
    }

    codec_ = own(avcodec_alloc_context3(codec));
    codec_->pkt_timebase = stream->time_base;  // for the removal of encoder delay and padding
    int result = avcodec_parameters_to_context(codec_.get(), stream->codecpar);
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
    if ((frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0) note_damage("incomplete data");
    if (frame_->nb_samples <= 0 || frame_->sample_rate <= 0 || frame_->ch_layout.nb_channels <= 0) return false;
    if (frame_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&frame_->ch_layout, frame_->ch_layout.nb_channels);
    }
    seconds_ += static_cast<double>(frame_->nb_samples) / frame_->sample_rate;
    return true;
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

void AudioDecoder::fail(const std::string &problem) const { throw ProgramError(ExitCode::input, path_, problem); }

}  // namespace tavik
