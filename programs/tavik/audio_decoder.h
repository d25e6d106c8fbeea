// The input side of the program, first step: from a file to decoded samples in whatever format they come.
#pragma once

#include <optional>
#include <string>

#include "ffmpeg_handles.h"

namespace tavik {

// The first place where the input could not be decoded as it stands.
struct Damage {
    double seconds;  // from the start of the decoded audio
    std::string reason;
};

// Decodes the best audio stream of a file, stepping over damaged places.
class AudioDecoder {
 public:
    // Throws ProgramError with ExitCode::input when the file cannot be opened or has no audio that can be decoded.
    explicit AudioDecoder(std::string path);

    // The next samples, at least one, or nullptr at the end; valid until the next call.
    const AVFrame *next();

    const std::optional<Damage> &damage() const { return damage_; }

 private:
    void open_file();
    void open_codec();
    bool feed();
    int read_packet();
    bool complete_frame();
    void note_damage(int error);
    void note_logged_damage();
    void note_damage(const std::string &reason);
    [[noreturn]] void fail(const std::string &problem) const;

    std::string path_;
    FfmpegHandle<AVFormatContext> format_;
    FfmpegHandle<AVCodecContext> codec_;
    FfmpegHandle<AVPacket> packet_;
    FfmpegHandle<AVFrame> frame_;
    int stream_index_ = -1;
    bool open_ended_ = false;  // nothing tells the length, so that the last packet may be short
    bool draining_ = false;    // the codec has been told that the input is at its end
    double seconds_ = 0;       // of audio decoded so far
    std::optional<Damage> damage_;
};

}  // namespace tavik
