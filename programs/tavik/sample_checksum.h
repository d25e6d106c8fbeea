// What FLAC files say of their samples beyond the checksums of single frames: an MD5 of them all (RFC 9639).
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
    // Nothing where a stream has none.
    static std::optional<SampleChecksum> of(const AVStream &stream);

    // Takes the next decoded frame.
    void add(const AVFrame &frame);

    // Behind the last frame, once: the samples are those that were coded. A part of them, cut out of a file without
    // coding it anew, is not in contradiction either.
    bool holds();

 private:
    using Md5 = std::array<uint8_t, 16>;
    struct Free {
        void operator()(AVMD5 *md5) const { av_free(md5); }
    };

    SampleChecksum(const Md5 &expected, int bits, int64_t total);

    Md5 expected_;
    int bits_;       // of a sample
    int64_t total_;  // samples per channel of which the checksum is
    int64_t count_ = 0;
    std::unique_ptr<AVMD5, Free> md5_;
    std::vector<uint8_t> bytes_;
};

}  // namespace tavik
