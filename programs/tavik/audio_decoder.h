// The input side of the program, first step: from a file to decoded samples in whatever format they come.
#pragma once

#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ffmpeg_handles.h"
#include "options.h"
#include "sample_checksum.h"
#include "stream_input.h"
#include "timeline.h"

namespace tavik {

// What to read of a file, and how.
struct Source {
    std::string path;              // may be standard_stream
    std::optional<PcmFormat> pcm;  // of samples without a header
    unsigned track = 0;            // audio stream, from 1; 0: the best
    std::string language;          // that the audio stream has to be in; empty: any
    bool keeps_start = false;      // audio that starts late does so without silence before it
    bool is_thorough = false;      // all samples of a FLAC file are held to its MD5, not only frames to their checksums
};

// The audio stream that was chosen.
struct Track {
    unsigned number = 1;  // from 1
    unsigned count = 1;   // of all audio streams
    std::string language;
};

// Decodes one audio stream of a file, stepping over damaged places. What it gives is in its place in time: where the
// file has no audio there is silence.
class AudioDecoder {
 public:
    // Throws ProgramError with ExitCode::input when the file cannot be opened or has no such audio that can be decoded.
    explicit AudioDecoder(Source source);

    // The next samples, at least one, or nullptr at the end; valid until the next call.
    const AVFrame *next();

    // The file, with tags, pictures and chapters; and the stream that is decoded.
    const AVFormatContext &container() const { return *format_; }
    const AVStream &stream() const { return *format_->streams[stream_index_]; }
    const std::string &path() const { return source_.path; }
    Track track() const;

    // Seconds of audio that the file has, if it tells; and those given so far.
    std::optional<double> duration() const;
    double seconds() const { return timeline_.position() - start(); }

    // From the start of the file to that of the audio, where no silence stands for that; in samples at `rate` Hz.
    int64_t start_samples(uint32_t rate) const { return std::llround(start() * rate); }

    // In words, after the end: the first place where the input could not be decoded as it stands, or how much of it is
    // missing.
    std::optional<std::string> damage() const;

    // In words, after an end without a beginning.
    std::string why_no_samples() const;

    // After the end: late starts, holes and overlaps.
    const std::vector<TimeError> &time_errors() const { return timeline_.errors(); }

 private:
    struct Damage {
        double seconds;  // from the start of the decoded audio
        std::string reason;
    };

    double start() const { return source_.keeps_start ? late_start_ : 0; }  // seconds
    void check_file() const;
    void open_format();
    void find_stream_information();
    std::vector<std::optional<double>> declared_lengths() const;
    bool is_pipe() const;
    bool is_ogg() const;
    bool is_wav() const;
    std::optional<double> declared_wav_length() const;
    bool read_before_samples(std::span<uint8_t> bytes) const;
    void note_end();
    void choose_stream();
    void open_codec();
    double tolerance() const;
    bool is_unimportant(const Damage &damage) const;
    bool is_truncated() const;
    bool decode();
    bool receive();
    bool feed();
    int read_packet();
    bool complete_frame();
    void place_frame();
    std::optional<double> frame_seconds();
    std::optional<double> next_frame_seconds();
    void cut_frame(int64_t samples);
    const AVFrame *silent_frame();
    void note_damage(int error);
    void note_logged_damage();
    void note_damage(const std::string &reason);
    [[noreturn]] void fail(const std::string &problem) const;

    Source source_;
    std::optional<StreamInput> stream_;  // where the input is one
    FfmpegHandle<AVFormatContext> format_;
    FfmpegHandle<AVCodecContext> codec_;
    FfmpegHandle<AVPacket> packet_;
    FfmpegHandle<AVFrame> frame_;
    FfmpegHandle<AVFrame> next_frame_;
    FfmpegHandle<AVFrame> silence_;
    int stream_index_ = -1;
    Timeline timeline_{0, false};
    std::optional<double> file_start_;        // by the clock of the time stamps, in seconds
    double late_start_ = 0;                   // seconds that the audio starts behind the file
    bool has_frame_ = false;                  // frame_ is still to be given
    bool has_next_frame_ = false;             // next_frame_ is read ahead
    int64_t silence_left_ = 0;                // samples to give before it
    std::optional<SampleChecksum> checksum_;  // until the end
    bool is_checksum_wrong_ = false;
    std::optional<double> declared_seconds_;  // what the header of the file promises, nothing that is estimated
    bool is_cut_off_ = false;                 // the file lacks its last part
    bool open_ended_ = false;                 // nothing tells the length, so that the last packet may be short
    bool draining_ = false;                   // the codec has been told that the input is at its end
    std::optional<Damage> damage_;
};

}  // namespace tavik
