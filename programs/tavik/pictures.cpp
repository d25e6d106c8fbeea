// libavcodec decodes and encodes pictures; libswscale converts their pixels to a format that PNG supports.
#include "pictures.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include "ffmpeg_log.h"
#include "program_error.h"

namespace tavik {
namespace {

using TagLib::ByteVector;
using TagLib::MP4::CoverArt;

struct ScalerDeleter {
    void operator()(SwsContext *scaler) const { sws_freeContext(scaler); }
};

std::optional<CoverArt::Format> format_of(AVCodecID codec) {
    switch (codec) {
        case AV_CODEC_ID_MJPEG: return CoverArt::JPEG;
        case AV_CODEC_ID_PNG: return CoverArt::PNG;
        case AV_CODEC_ID_BMP: return CoverArt::BMP;
        case AV_CODEC_ID_GIF: return CoverArt::GIF;
        default: return std::nullopt;
    }
}

ByteVector bytes_of(const AVPacket &packet) {
    const auto *data = reinterpret_cast<const char *>(packet.data);  // NOLINT(*-reinterpret-cast): TagLib's bytes
    return {data, static_cast<unsigned>(packet.size)};
}

// Opens a codec for a single picture, with `frame` as the input of an encoder; nullptr on an error.
FfmpegHandle<AVCodecContext> open_codec(const AVCodec *codec, const AVFrame *frame) {
    if (codec == nullptr) return nullptr;
    auto context = own(avcodec_alloc_context3(codec));
    context->thread_count = 1;
    context->time_base = {1, 1};
    if (frame != nullptr) {
        context->width = frame->width;
        context->height = frame->height;
        context->pix_fmt = static_cast<AVPixelFormat>(frame->format);
    }
    return avcodec_open2(context.get(), codec, nullptr) == 0 ? std::move(context) : nullptr;
}

FfmpegHandle<AVFrame> decode(AVCodecID id, const AVPacket &packet) {
    const auto codec = open_codec(avcodec_find_decoder(id), nullptr);
    if (!codec || avcodec_send_packet(codec.get(), &packet) < 0) return nullptr;
    avcodec_send_packet(codec.get(), nullptr);
    auto frame = own(av_frame_alloc());
    return avcodec_receive_frame(codec.get(), frame.get()) == 0 ? std::move(frame) : nullptr;
}

// Converts to RGB, or to RGBA if the picture has transparency.
FfmpegHandle<AVFrame> to_rgb(const AVFrame &picture) {
    const auto format = static_cast<AVPixelFormat>(picture.format);
    const AVPixFmtDescriptor *descriptor = av_pix_fmt_desc_get(format);
    const uint64_t transparent = AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_PAL;
    const bool has_alpha = descriptor != nullptr && (descriptor->flags & transparent) != 0;
    auto rgb = own(av_frame_alloc());
    rgb->format = has_alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24;
    rgb->width = picture.width;
    rgb->height = picture.height;
    const std::unique_ptr<SwsContext, ScalerDeleter> scaler(sws_getContext(
        picture.width, picture.height, format, picture.width, picture.height, static_cast<AVPixelFormat>(rgb->format),
        SWS_ACCURATE_RND | SWS_BICUBIC, nullptr, nullptr, nullptr));
    return scaler && sws_scale_frame(scaler.get(), rgb.get(), &picture) >= 0 ? std::move(rgb) : nullptr;
}

std::optional<CoverArt> to_png(const AVFrame &picture) {
    const auto rgb = to_rgb(picture);
    if (!rgb) return std::nullopt;
    const auto codec = open_codec(avcodec_find_encoder(AV_CODEC_ID_PNG), rgb.get());
    const auto packet = own(av_packet_alloc());
    if (!codec || avcodec_send_frame(codec.get(), rgb.get()) < 0) return std::nullopt;
    avcodec_send_frame(codec.get(), nullptr);
    if (avcodec_receive_packet(codec.get(), packet.get()) < 0) return std::nullopt;
    return CoverArt(CoverArt::PNG, bytes_of(*packet));
}

std::string name_of(AVCodecID codec) {
    std::string name = avcodec_get_name(codec);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    return name;
}

// Recognises the codec of a picture by its bytes: libavformat's demuxer for a codec x has the name x_pipe. Probing
// needs the zeros after the packet's bytes.
AVCodecID codec_of(const AVPacket &packet) {
    static_assert(AV_INPUT_BUFFER_PADDING_SIZE >= AVPROBE_PADDING_SIZE);
    const AVProbeData probe{.filename = "", .buf = packet.data, .buf_size = packet.size, .mime_type = nullptr};
    const AVInputFormat *format = av_probe_input_format(&probe, 1);
    std::string name = format == nullptr ? "" : format->name;
    name.resize(std::min(name.find("_pipe"), name.size()));
    const AVCodecDescriptor *codec = avcodec_descriptor_get_by_name(name == "jpeg" ? "mjpeg" : name.c_str());
    return codec == nullptr || codec->type != AVMEDIA_TYPE_VIDEO ? AV_CODEC_ID_NONE : codec->id;
}

void add_picture(AVCodecID codec, const AVPacket &packet, Tags &tags) {
    if (const auto format = format_of(codec)) {
        tags.pictures.append(CoverArt(*format, bytes_of(packet)));
        return;
    }
    const auto picture = decode(codec, packet);
    const auto png = picture ? to_png(*picture) : std::nullopt;
    if (!png) return tags.note_not_kept(codec == AV_CODEC_ID_NONE ? "picture" : "picture (" + name_of(codec) + ")");
    tags.pictures.append(*png);
    tags.changes.push_back("a picture from " + name_of(codec) + " to PNG");
}

// Adds pictures that libavformat has found. One without a size is not a picture, whatever its codec.
void add_attached_pictures(std::span<const AVStream *const> streams, Tags &tags) {
    for (const AVStream *stream : streams) {
        const AVCodecParameters &parameters = *stream->codecpar;
        const bool has_size = parameters.width > 0 && parameters.height > 0;
        add_picture(has_size ? parameters.codec_id : AV_CODEC_ID_NONE, stream->attached_pic, tags);
    }
}

void add_source_pictures(std::span<const SourcePicture> pictures, Tags &tags) {
    for (const SourcePicture &picture : pictures) {
        const auto *data = reinterpret_cast<const uint8_t *>(picture.bytes.data());  // NOLINT(*-reinterpret-cast)
        const auto packet = new_packet({data, picture.bytes.size()});
        add_picture(codec_of(*packet), *packet, tags);
    }
}

// MP4 files do not store the type of a picture; usually they only have a front cover.
bool is_front_cover(const AVStream *stream) {
    const AVDictionaryEntry *type = av_dict_get(stream->metadata, "comment", nullptr, 0);
    return type == nullptr || type->value == std::string_view("Cover (front)");
}

}  // namespace

// TagLib's pictures are used if libavformat has found fewer: it omits pictures whose MIME type it does not know.
void read_pictures(const AVFormatContext &source, FrontCover front_cover, Tags &tags) {
    std::vector<const AVStream *> streams;
    for (const AVStream *stream : std::span(source.streams, source.nb_streams)) {
        const bool is_picture = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (is_picture && stream->attached_pic.size > 0) streams.push_back(stream);
    }
    const auto arrange = [front_cover](auto &pictures, auto is_front) {
        const auto others = std::stable_partition(pictures.begin(), pictures.end(), is_front);
        if (front_cover == FrontCover::leave_out) pictures.erase(pictures.begin(), others);
    };
    std::vector<SourcePicture> found = std::move(tags.source_pictures);
    const bool has_all = streams.size() >= found.size();
    arrange(streams, is_front_cover);
    arrange(found, [](const SourcePicture &picture) { return picture.is_front_cover; });
    if (has_all) {
        add_attached_pictures(streams, tags);
    } else {
        add_source_pictures(found, tags);
    }
}

CoverArt read_picture_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw ProgramError(ExitCode::usage, path, "cannot open this cover");
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    const auto packet = new_packet(bytes);
    const AVCodecID codec = codec_of(*packet);
    const auto picture = decode(codec, *packet);
    take_ffmpeg_log();
    const auto format = format_of(codec);
    if (picture && format) return {*format, bytes_of(*packet)};
    const auto png = picture ? to_png(*picture) : std::nullopt;
    if (!png) throw ProgramError(ExitCode::usage, path, "is not a picture");
    return *png;
}

}  // namespace tavik
