// The decoder of libfaad.
#include <neaacdec.h>

#include <stdexcept>

#include "pass.h"

namespace tavik_bench {
namespace {

struct CloseDecoder {
    void operator()(void *decoder) const { NeAACDecClose(decoder); }
};

void require(bool success, const char *what) {
    if (!success) throw std::runtime_error(std::string("libfaad: ") + what);
}

class FaadDecoder : public Pass {
 public:
    // The library reads through pointers to writable bytes.
    explicit FaadDecoder(const Stream &stream) : stream_(stream), decoder_(NeAACDecOpen()) {
        require(decoder_ != nullptr, "no decoder");
        unsigned long sample_rate = 0;
        unsigned char channels = 0;
        auto &first = stream_.front();
        require(NeAACDecInit(decoder_.get(), first.data(), first.size(), &sample_rate, &channels) == 0,
                "stream refused");
    }

    std::size_t run() override {
        std::size_t bytes = 0;
        for (auto &frame : stream_) {
            NeAACDecFrameInfo info;
            NeAACDecDecode(decoder_.get(), &info, frame.data(), frame.size());
            require(info.error == 0, NeAACDecGetErrorMessage(info.error));
            bytes += info.samples * sizeof(std::int16_t);
        }
        return bytes;
    }

 private:
    Stream stream_;
    std::unique_ptr<void, CloseDecoder> decoder_;
};

}  // namespace

std::unique_ptr<Pass> make_faad_decoder(const Clip &, const Stream &stream, unsigned) {
    return std::make_unique<FaadDecoder>(stream);
}

}  // namespace tavik_bench
