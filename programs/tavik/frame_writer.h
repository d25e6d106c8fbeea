// The coded frames on their way into a file of the chosen format.
#pragma once

#include <memory>
#include <span>

#include "mp4_muxer.h"
#include "options.h"
#include "output_file.h"

namespace tavik {

// Writes frames into an MP4 file, or as they are, with the headers that the encoder has put in front of them.
class FrameWriter {
 public:
    // Keeps a reference to `output`. Tags and pictures are those of `source`.
    FrameWriter(OutputFile &output, Format format, const EncoderConfig &config, const AudioDecoder &source)
        : output_(output), muxer_(format == Format::m4a ? new Mp4Muxer(output, config, source) : nullptr) {}

    void write(std::span<const uint8_t> frame) {
        if (muxer_) {
            muxer_->write(frame);
        } else {
            output_.write(frame);
        }
    }

    // Ends the file, which is to play `samples` per channel where the format can tell.
    void finish(uint64_t samples) {
        if (muxer_) muxer_->finish(samples);
    }

 private:
    OutputFile &output_;
    std::unique_ptr<Mp4Muxer> muxer_;
};

}  // namespace tavik
