// Writes coded frames in the chosen format.
#pragma once

#include <optional>
#include <span>

#include "mp4_muxer.h"
#include "options.h"
#include "output_file.h"

namespace tavik {

// Writes frames into an MP4 file, or unchanged with the headers that the encoder has written.
class FrameWriter {
 public:
    // Keeps references to `output` and `tags`. Chapters and language are those of `source`. is_live: MP4 is fragmented
    // so that it can be played at once, with fragments of one frame in a stream and of one second in a file.
    FrameWriter(OutputFile &output, Format format, const EncoderConfig &config, const AudioDecoder &source,
                const Tags &tags, bool is_live)
        : output_(output) {
        std::optional<int64_t> fragment;
        if (!output.is_regular()) {
            fragment = is_live ? 1 : config.sample_rate / 2;
        } else if (is_live) {
            fragment = config.sample_rate;
        }
        if (format == Format::m4a) muxer_.emplace(output, config, source, tags, fragment);
    }

    // As Mp4Muxer::write().
    void write(std::span<const uint8_t> frame, uint64_t samples) {
        if (muxer_) {
            muxer_->write(frame, samples);
        } else {
            output_.write(frame);
        }
    }

    // Completes the file.
    void finish() {
        if (muxer_) muxer_->finish();
    }

 private:
    OutputFile &output_;
    std::optional<Mp4Muxer> muxer_;
};

}  // namespace tavik
