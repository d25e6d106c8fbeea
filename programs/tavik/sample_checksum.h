// The MD5 checksum of all samples that a FLAC file contains in addition to the checksums of its frames (RFC 9639).
#pragma once

extern "C" {
#include <libavutil/md5.h>
}

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "ffmpeg_handles.h"

namespace tavik {

class SampleChecksum {
 public:
    // Absent if the stream has no such checksum.
    static std::optional<SampleChecksum> of(const AVStream &stream);

    // Adds the next decoded frame.
    void add(const AVFrame &frame);

    // After the last frame, once: whether the samples match the checksum. True as well if their number differs from the
    // declared one, as in a part that was cut out of a file without encoding it again.
    bool matches();

 private:
    using Md5 = std::array<uint8_t, 16>;
    struct Free {
        void operator()(AVMD5 *md5) const { av_free(md5); }
    };

    SampleChecksum(const Md5 &expected, int bits, int64_t total);

    Md5 expected_;
    int bits_;       // per sample
    int64_t total_;  // samples per channel that the checksum covers
    int64_t count_ = 0;
    std::unique_ptr<AVMD5, Free> md5_;
    std::vector<uint8_t> bytes_;
};

}  // namespace tavik
