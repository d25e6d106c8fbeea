#include "recording.h"

#include <chrono>
#include <condition_variable>
#include <system_error>

#include "mp4_muxer.h"
#include "program_error.h"

namespace tavik {
namespace {

using namespace std::chrono_literals;

constexpr auto interval = 2s;

FfmpegHandle<AVFormatContext> open_recording(const OutputFile &recording) {
    AVDictionary *options = nullptr;
    // With the edit list, libavformat would drop the priming frame.
    av_dict_set_int(&options, "ignore_editlist", 1, 0);
    AVFormatContext *format = nullptr;
    const std::string url = "file:" + recording.written_path();
    const int result = avformat_open_input(&format, url.c_str(), av_find_input_format("mov"), &options);
    av_dict_free(&options);
    if (result < 0) throw ProgramError(ExitCode::output, recording.draft_name(), ffmpeg_error_text(result));
    return FfmpegHandle<AVFormatContext>(format);
}

}  // namespace

PeriodicSync::PeriodicSync(const OutputFile &file)
    : file_(file), thread_([this](const std::stop_token &stop) { work(stop); }) {}

void PeriodicSync::work(const std::stop_token &stop) {
    std::condition_variable_any wait;
    std::unique_lock lock(mutex_);
    while (!wait.wait_for(lock, stop, interval, [&stop] { return stop.stop_requested(); })) {
        if (const int error = file_.sync(); error != 0) error_ = error;
    }
}

void PeriodicSync::check() const {
    if (error_ == 0) return;
    throw ProgramError(ExitCode::output, file_.name(), "cannot write: " + std::generic_category().message(error_));
}

void copy_recording(const OutputFile &recording, OutputFile &output, const EncoderConfig &config,
                    const AudioDecoder &source, const Tags &tags, const PlayedPart &recorded) {
    const auto format = open_recording(recording);
    Mp4Muxer muxer(output, config, source, tags, std::nullopt);
    const auto packet = own(av_packet_alloc());
    for (uint64_t frames = 0;; ++frames) {
        const int result = av_read_frame(format.get(), packet.get());
        if (result == AVERROR_EOF && frames == recorded.frames) break;
        // A read error of the disk can look like the end of the file.
        if (result < 0) throw ProgramError(ExitCode::output, recording.draft_name(), "cannot read back");
        muxer.write({packet->data, static_cast<size_t>(packet->size)}, recorded.samples);
        av_packet_unref(packet.get());
    }
    muxer.finish();
}

}  // namespace tavik
