// The input side of the program, first step: from a file to decoded samples in whatever format they come.
#pragma once

#include <optional>
#include <string>

#include "ffmpeg_handles.h"
#include "options.h"
#include "stream_input.h"

namespace tavik {

// Decodes the best audio stream of a file, stepping over damaged places.
class AudioDecoder {
 public:
    // `path` may be standard_stream; `pcm` is given for samples without a header. Throws ProgramError with
    // ExitCode::input when the file cannot be opened or has no audio that can be decoded.
    AudioDecoder(std::string path, std::optional<PcmFormat> pcm);

    // The next samples, at least one, or nullptr at the end; valid until the next call.
    const AVFrame *next();

    // The file, with tags, pictures and chapters; and the stream that is decoded.
    const AVFormatContext &container() const { return *format_; }
    const AVStream &stream() const { return *format_->streams[stream_index_]; }

    // Seconds of audio that the file has, if it tells; and those decoded so far.
    std::optional<double> duration() const;
    double seconds() const { return seconds_; }

    // In words, after the end: the first place where the input could not be decoded as it stands, or how much of it is
    // missing.
    std::optional<std::string> damage() const;

 private:
    struct Damage {
        double seconds;  // from the start of the decoded audio
        std::string reason;
    };

    void check_file() const;
    void open_stream(std::optional<PcmFormat> &pcm);
    void open_format(const std::optional<PcmFormat> &pcm);
    void find_stream_information();
    void open_codec();
    void note_wav_length(const WavHeader &header);
    double tolerance() const;
    bool is_unimportant(const Damage &damage) const;
    void check_end();
    bool is_truncated() const;
    bool feed();
    int read_packet();
    bool complete_frame();
    void note_damage(int error);
    void note_logged_damage();
    void note_damage(const std::string &reason);
    [[noreturn]] void fail(const std::string &problem) const;

    std::string path_;
    std::optional<StreamInput> stream_;  // where the input is one
    FfmpegHandle<AVFormatContext> format_;
    FfmpegHandle<AVCodecContext> codec_;
    FfmpegHandle<AVPacket> packet_;
    FfmpegHandle<AVFrame> frame_;
    int stream_index_ = -1;
    std::optional<double> declared_seconds_;  // what the header of the file promises, nothing that is estimated
    bool is_cut_off_ = false;                 // the file lacks its last part
    bool open_ended_ = false;                 // nothing tells the length, so that the last packet may be short
    bool draining_ = false;                   // the codec has been told that the input is at its end
    double seconds_ = 0;                      // of audio decoded so far
    std::optional<Damage> damage_;
};

}  // namespace tavik
