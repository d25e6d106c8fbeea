#include "clip.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "support/signals.h"

namespace tavik_bench {

Clip read_clip(const std::string &file, unsigned sample_rate, unsigned channels) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    Clip clip{std::filesystem::path(file).stem(), sample_rate, channels, {}};
    clip.pcm.resize(bytes.size() / (sizeof(std::int16_t) * channels) * channels);
    if (clip.pcm.empty()) throw std::runtime_error(file + " holds no samples");
    std::memcpy(clip.pcm.data(), bytes.data(), clip.pcm.size() * sizeof(std::int16_t));
    return clip;
}

Clip synthetic_clip(unsigned sample_rate, unsigned channels) {
    using tavik_test::SignalKind;
    constexpr unsigned seconds = 10;
    const std::size_t samples = std::size_t{seconds} * sample_rate;
    Clip clip{"synthetic", sample_rate, channels, {}};
    clip.pcm = tavik_test::make_signal(SignalKind::music, channels, samples, sample_rate, 1);
    const auto bursts = tavik_test::make_signal(SignalKind::transients, channels, samples, sample_rate, 1);
    for (std::size_t i = 0; i < clip.pcm.size(); ++i) {
        clip.pcm[i] = static_cast<std::int16_t>(std::clamp(clip.pcm[i] + bursts[i] / 8, -32768, 32767));
    }
    return clip;
}

}  // namespace tavik_bench
