// libavformat reads MP4 and ADTS. It does not support ADIF and raw frames: those are split by the sizes of the frames
// that were written.
#include "verification.h"

extern "C" {
#include <libavutil/adler32.h>
}

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "audio_specific_config.h"
#include "bit_rates.h"
#include "ffmpeg_handles.h"
#include "ffmpeg_log.h"
#include "program_error.h"

namespace tavik {
namespace {

[[noreturn]] void fail(const std::string &problem) { throw std::runtime_error(problem); }

int check(int result) {
    if (result < 0) fail(ffmpeg_error_text(result));
    return result;
}

// The decoded output.
struct Decoded {
    std::vector<FrameDigest> digests;
    uint64_t samples = 0;          // per channel
    int64_t declared_samples = 0;  // number of samples to play, declared by an MP4 file
};

// Decodes packets and checks the result against the configuration.
class Checker {
 public:
    Checker(const AVCodecParameters &parameters, AVRational time_base, const EncoderConfig &config)
        : config_(config), frame_(own(av_frame_alloc())) {
        const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
        codec_ = own(avcodec_alloc_context3(codec));
        check(avcodec_parameters_to_context(codec_.get(), &parameters));
        codec_->pkt_timebase = time_base;
        codec_->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
        check(avcodec_open2(codec_.get(), codec, nullptr));
    }

    // Decodes a packet; nullptr drains the decoder at the end.
    void decode(const AVPacket *packet) {
        check(avcodec_send_packet(codec_.get(), packet));
        while (avcodec_receive_frame(codec_.get(), frame_.get()) >= 0) take_frame();
        if (const std::string error = take_ffmpeg_log().first_error; !error.empty()) fail(error);
    }

    const Decoded &decoded() const { return decoded_; }

 private:
    void take_frame() {
        decoded_.samples += static_cast<uint64_t>(frame_->nb_samples);
        if (frame_->sample_rate != static_cast<int>(config_.sample_rate)) fail("the sampling rate differs");
        if (frame_->ch_layout.nb_channels != static_cast<int>(channel_count(config_))) fail("the channels differ");
    }

    const EncoderConfig &config_;
    FfmpegHandle<AVCodecContext> codec_;
    FfmpegHandle<AVFrame> frame_;
    Decoded decoded_;
};

// The demuxer is given, because short streams would not be recognised.
Decoded decode_container(const std::string &path, const EncoderConfig &config, const char *demuxer) {
    AVFormatContext *opened = nullptr;
    check(avformat_open_input(&opened, ("file:" + path).c_str(), av_find_input_format(demuxer), nullptr));
    const FfmpegHandle<AVFormatContext> format(opened);
    check(avformat_find_stream_info(opened, nullptr));
    const int index = check(av_find_best_stream(opened, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0));
    Checker checker(*opened->streams[index]->codecpar, opened->streams[index]->time_base, config);
    std::vector<FrameDigest> digests;
    const auto packet = own(av_packet_alloc());
    for (;;) {
        const int result = av_read_frame(opened, packet.get());
        if (result == AVERROR_EOF) break;
        check(result);
        if (packet->stream_index == index) {
            digests.push_back(digest_of({packet->data, static_cast<size_t>(packet->size)}));
            checker.decode(packet.get());
        }
        av_packet_unref(packet.get());
    }
    checker.decode(nullptr);
    Decoded decoded = checker.decoded();
    decoded.digests = std::move(digests);
    decoded.declared_samples = opened->streams[index]->duration;
    return decoded;
}

// Without a container: one frame after the other, a header of the stream before the first.
Decoded decode_frames(const std::string &path, const EncoderConfig &config, size_t header_bytes,
                      std::span<const FrameDigest> expected) {
    const auto parameters = own(avcodec_parameters_alloc());
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = AV_CODEC_ID_AAC;
    set_extradata(*parameters, audio_specific_config(config));

    Checker checker(*parameters, {1, static_cast<int>(config.sample_rate)}, config);
    std::vector<FrameDigest> digests;
    std::ifstream file(path, std::ios::binary);
    size_t header = header_bytes;
    for (const FrameDigest &mark : expected) {
        std::vector<uint8_t> frame(mark.size);
        file.read(reinterpret_cast<char *>(frame.data()), mark.size);  // NOLINT(*-reinterpret-cast): bytes
        if (!file) fail("the file is too short");
        digests.push_back(digest_of(frame));
        const auto block = std::span(frame).subspan(std::exchange(header, 0));
        checker.decode(new_packet(block).get());
    }
    if (file.peek() != std::ifstream::traits_type::eof()) fail("the file is too long");
    checker.decode(nullptr);
    Decoded decoded = checker.decoded();
    decoded.digests = std::move(digests);
    return decoded;
}

Decoded decode(const std::string &path, const EncodedFile &file, std::span<const FrameDigest> digests) {
    switch (file.format) {
        case Format::raw_frames: return decode_frames(path, file.config, 0, digests);
        case Format::adif: return decode_frames(path, file.config, adif_header_bytes(file.config), digests);
        case Format::adts: return decode_container(path, file.config, "aac");
        default: return decode_container(path, file.config, "mov");
    }
}

void require_samples(uint64_t actual, uint64_t expected) {
    if (actual != expected) fail(fmt::format("{} samples instead of {}", actual, expected));
}

void compare(const Decoded &decoded, const EncodedFile &expected, std::span<const FrameDigest> digests) {
    if (decoded.digests.size() != digests.size()) {
        fail(fmt::format("{} frames instead of {}", decoded.digests.size(), digests.size()));
    }
    const auto difference = std::ranges::mismatch(decoded.digests, digests).in1 - decoded.digests.begin();
    if (difference < std::ssize(digests)) fail(fmt::format("frame {} differs", difference));
    if (expected.format != Format::m4a) {
        require_samples(decoded.samples, expected.frames * TAVIK_FRAME_LENGTH);
        return;
    }
    // libavformat removes the priming samples, unless an edit delays the start; some versions remove padding, too.
    const uint64_t lead = std::min<uint64_t>(expected.start, TAVIK_FRAME_LENGTH);
    require_samples(static_cast<uint64_t>(decoded.declared_samples), expected.samples + lead);
    const uint64_t padded = (expected.frames - 1) * TAVIK_FRAME_LENGTH;
    if (decoded.samples != padded + lead) require_samples(decoded.samples, expected.samples + lead);
}

}  // namespace

FrameDigest digest_of(std::span<const uint8_t> frame) {
    const auto checksum = static_cast<uint32_t>(av_adler32_update(1, frame.data(), frame.size()));
    return {static_cast<uint32_t>(frame.size()), checksum};
}

void verify(const OutputFile &output, const EncodedFile &expected, std::span<const FrameDigest> digests) {
    take_ffmpeg_log();
    try {
        compare(decode(output.written_path(), expected, digests), expected, digests);
    } catch (const std::runtime_error &difference) {
        throw ProgramError(ExitCode::output, output.name(), std::string("verification failed: ") + difference.what());
    }
}

}  // namespace tavik
