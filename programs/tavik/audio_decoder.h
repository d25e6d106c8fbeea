// Input, step 1: from a file to decoded samples in their original format.
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

// An input and how to read it.
struct Source {
    std::string path;              // may be standard_stream
    std::optional<PcmFormat> pcm;  // format of samples without a header
    unsigned track = 0;            // number of the audio stream, from 1; 0: the best one
    std::string language;          // required language of the audio stream; empty: any
    bool keeps_start = false;      // no silence is inserted before audio that starts late
    bool checks_md5 = false;       // compare the decoded samples of FLAC with the MD5 checksum in the file
};

// The chosen audio stream.
struct Track {
    unsigned number = 1;  // from 1
    unsigned count = 1;   // number of audio streams in the file
    std::string language;
};

// Decodes one audio stream of a file and skips damaged parts. The samples keep their position in time: where the file
// has no audio, silence is inserted.
class AudioDecoder {
 public:
    // Throws ProgramError with ExitCode::input when the file cannot be opened or the requested audio cannot be decoded.
    explicit AudioDecoder(Source source);

    // The next samples, at least one, or nullptr at the end; valid until the next call.
    const AVFrame *next();

    // The file, which has tags, pictures and chapters; and the stream that is decoded.
    const AVFormatContext &container() const { return *format_; }
    const AVStream &stream() const { return *format_->streams[stream_index_]; }
    const std::string &path() const { return source_.path; }
    Track track() const;

    // Length of the audio in seconds, if known; and seconds returned so far.
    std::optional<double> duration() const;
    double seconds() const { return timeline_.position() - start(); }

    // Samples at `rate` Hz from the start of the file to that of the audio; 0 if silence has been inserted for them.
    int64_t start_samples(uint32_t rate) const { return std::llround(start() * rate); }

    // After the end: describes the first damage, or how much is missing at the end.
    std::optional<std::string> damage() const;

    // After the end, if there were no samples: describes why.
    std::string why_no_samples() const;

    // After the end: late starts, holes, overlaps and jumps.
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
    void detect_missing_end();
    void choose_stream();
    void open_codec();
    double tolerance() const;
    bool is_ignorable(const Damage &damage) const;
    bool is_truncated() const;
    bool decode();
    bool receive();
    bool feed();
    int read_packet();
    bool accept_frame();
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
    std::optional<StreamInput> stream_;  // if the input is standard input, a FIFO or the like
    FfmpegHandle<AVFormatContext> format_;
    FfmpegHandle<AVCodecContext> codec_;
    FfmpegHandle<AVPacket> packet_;
    FfmpegHandle<AVFrame> frame_;
    FfmpegHandle<AVFrame> next_frame_;
    FfmpegHandle<AVFrame> silence_;
    int stream_index_ = -1;
    Timeline timeline_{0, false};
    std::optional<double> file_start_;        // time stamp of the start of the file in seconds
    double late_start_ = 0;                   // seconds from the start of the file to the start of the audio
    bool has_frame_ = false;                  // frame_ has not been returned yet
    bool has_next_frame_ = false;             // next_frame_ has been decoded ahead
    int64_t silence_left_ = 0;                // samples to return before frame_
    std::optional<SampleChecksum> checksum_;  // until the end
    bool is_checksum_wrong_ = false;
    std::optional<double> declared_seconds_;  // length in the header of the file, never an estimate
    bool is_cut_off_ = false;                 // the end of the file is missing
    bool open_ended_ = false;                 // the length is not declared, so the last packet may be short
    bool draining_ = false;                   // the end of the input has been sent to the codec
    std::optional<Damage> damage_;
};

}  // namespace tavik
