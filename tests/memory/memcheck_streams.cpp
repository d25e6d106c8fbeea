// Short streams of every kind for valgrind's memcheck, which follows each uninitialised byte: context and output start
// undefined, and so does, from frame to frame, the part of the context that is scratch. Without valgrind this only
// encodes.
#include <valgrind/memcheck.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>

#include "common/encoder_context.h"
#include "support/checked_encoder.h"
#include "support/golden_streams.h"
#include "tavik.h"

namespace {

using namespace tavik_test;

void forget_scratch(EncoderContext &context) {
    tavik::EncoderState &state = tavik::state_of(context);
    VALGRIND_MAKE_MEM_UNDEFINED(&state.work_buffer, sizeof(state.work_buffer));
    VALGRIND_MAKE_MEM_UNDEFINED(&state.spectrum, sizeof(state.spectrum));
    VALGRIND_MAKE_MEM_UNDEFINED(&state.pow34_spectrum, sizeof(state.pow34_spectrum));
}

// The input is a heap block of just its size, the output one of the size that the header asks for.
void encode(EncoderContext &context, std::span<const std::int16_t> pcm, unsigned channels) {
    const auto input = std::make_unique_for_overwrite<std::int16_t[]>(pcm.size());
    std::copy(pcm.begin(), pcm.end(), input.get());
    const auto output = std::make_unique_for_overwrite<std::uint8_t[]>(channels * TAVIK_MAX_FRAME_BYTES_PER_CHANNEL);
    auto samples = static_cast<std::uint32_t>(pcm.size() / channels);
    const auto bytes = std::make_unique_for_overwrite<std::uint32_t>();
    forget_scratch(context);
    TAVIK_Encode(&context, input.get(), &samples, output.get(), bytes.get());
    VALGRIND_CHECK_VALUE_IS_DEFINED(samples);
    VALGRIND_CHECK_VALUE_IS_DEFINED(context.status);
    VALGRIND_CHECK_MEM_IS_DEFINED(bytes.get(), sizeof(*bytes));
    VALGRIND_CHECK_MEM_IS_DEFINED(output.get(), *bytes);
}

void encode_stream_of(const GoldenStream &golden) {
    const unsigned channels = channel_count(golden.config);
    const std::size_t frame = std::size_t{TAVIK_FRAME_LENGTH} * channels;
    const auto signal = golden.pcm(4 * 1024 + 345);
    const auto context = std::make_unique_for_overwrite<EncoderContext>();
    TAVIK_Init(context.get(), &golden.config);
    for (std::span pcm(signal); context->status != TAVIK_STATUS_END_OF_STREAM;) {
        const std::size_t taken = std::min(frame, pcm.size());
        encode(*context, pcm.first(taken), channels);
        pcm = pcm.subspan(taken);
    }
}

}  // namespace

int main() {
    for (const GoldenStream &golden : golden_streams()) encode_stream_of(golden);
}
