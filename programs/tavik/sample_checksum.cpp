// The checksum covers the samples as they would be in a file without a header: interleaved, little-endian, each in the
// smallest whole number of bytes. libavcodec returns samples in the upper bits of 16 or 32 bits.
#include "sample_checksum.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include <algorithm>
#include <span>

namespace tavik {
namespace {

// Size of FLAC's STREAMINFO block, and byte offsets in it.
constexpr int streaminfo_bytes = 34;
constexpr size_t bits_offset = 12;
constexpr size_t md5_offset = 18;

template <typename Sample>
std::span<const Sample> samples_of(const AVFrame &frame, size_t count) {
    return {reinterpret_cast<const Sample *>(frame.data[0]), count};  // NOLINT(*-reinterpret-cast): FFmpeg's bytes
}

template <typename Sample>
void append(std::vector<uint8_t> &bytes, std::span<const Sample> samples, int bits) {
    const int shift = static_cast<int>(sizeof(Sample)) * 8 - bits;
    const int count = (bits + 7) / 8;
    for (const Sample sample : samples) {
        for (int i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(sample >> shift >> 8 * i));
    }
}

}  // namespace

std::optional<SampleChecksum> SampleChecksum::of(const AVStream &stream) {
    const AVCodecParameters &parameters = *stream.codecpar;
    if (parameters.codec_id != AV_CODEC_ID_FLAC || parameters.extradata_size < streaminfo_bytes) return std::nullopt;
    const std::span streaminfo(parameters.extradata, streaminfo_bytes);
    Md5 expected{};
    std::copy_n(streaminfo.begin() + md5_offset, expected.size(), expected.begin());
    if (expected == Md5{}) return std::nullopt;
    const int bits = ((streaminfo[bits_offset] & 1) << 4 | streaminfo[bits_offset + 1] >> 4) + 1;
    const int64_t total =
        static_cast<int64_t>(streaminfo[bits_offset + 1] & 15) << 32 | AV_RB32(&streaminfo[bits_offset + 2]);
    return SampleChecksum(expected, bits, total);
}

SampleChecksum::SampleChecksum(const Md5 &expected, int bits, int64_t total)
    : expected_(expected), bits_(bits), total_(total), md5_(av_md5_alloc()) {
    if (!md5_) throw std::bad_alloc();
    av_md5_init(md5_.get());
}

void SampleChecksum::add(const AVFrame &frame) {
    const auto count = static_cast<size_t>(frame.nb_samples) * static_cast<size_t>(frame.ch_layout.nb_channels);
    count_ += frame.nb_samples;
    if (frame.format == AV_SAMPLE_FMT_S16 && bits_ == 16) {
        av_md5_update(md5_.get(), frame.data[0], count * sizeof(int16_t));
        return;
    }
    bytes_.clear();
    if (frame.format == AV_SAMPLE_FMT_S16) append(bytes_, samples_of<int16_t>(frame, count), bits_);
    if (frame.format == AV_SAMPLE_FMT_S32) append(bytes_, samples_of<int32_t>(frame, count), bits_);
    av_md5_update(md5_.get(), bytes_.data(), bytes_.size());
}

bool SampleChecksum::matches() {
    Md5 actual{};
    av_md5_final(md5_.get(), actual.data());
    return count_ != total_ || actual == expected_;
}

}  // namespace tavik
