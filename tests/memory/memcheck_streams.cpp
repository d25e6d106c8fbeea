// Short streams of every kind for valgrind's memcheck, which follows each uninitialised byte: context and output start
// undefined, and so does, from frame to frame, the part of the context that is scratch. Without valgrind this only
// encodes.
#include <valgrind/memcheck.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

#include "interface/encoder_context.h"
#include "support/checked_encoder.h"
#include "support/golden_streams.h"
#include "support/signals.h"
#include "tavik.h"

namespace {

using namespace tavik_test;

// Calls that met a tool in use: there must be some for this to mean something.
struct Coverage {
    unsigned tns = 0, short_blocks = 0, mid_side = 0;
};

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

void count_tools(const tavik::CodingBlock &block, Coverage &seen) {
    seen.tns += block.tns_data[0].tns_data_present;
    seen.short_blocks += block.window_sequence[0] == tavik::WindowSequence::eight_short;
    seen.mid_side += block.common_window == 1 && block.ms_mask_present != tavik::MsMask::none;
}

void encode_stream_of(const GoldenStream &golden, Coverage &seen) {
    const unsigned channels = channel_count(golden.config);
    const std::size_t frame = std::size_t{TAVIK_FRAME_LENGTH} * channels;
    const auto signal = make_signal(golden.signal, channels, 4 * 1024 + 345, golden.config.sample_rate, 20261122);
    const auto context = std::make_unique_for_overwrite<EncoderContext>();
    TAVIK_Init(context.get(), &golden.config);
    for (std::span pcm(signal); context->status != TAVIK_STATUS_END_OF_STREAM;) {
        const std::size_t taken = std::min(frame, pcm.size());
        encode(*context, pcm.first(taken), channels);
        count_tools(tavik::state_of(*context).coding, seen);
        pcm = pcm.subspan(taken);
    }
}

}  // namespace

int main() {
    Coverage seen;
    for (const GoldenStream &golden : golden_streams()) encode_stream_of(golden, seen);
    std::printf("calls with TNS %u, short blocks %u, mid/side %u\n", seen.tns, seen.short_blocks, seen.mid_side);
    return seen.tns > 0 && seen.short_blocks > 0 && seen.mid_side > 0 ? 0 : 1;
}
