#include "support/checked_encoder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "support/require.h"

namespace tavik_test {
namespace {

bool is_stale(std::span<const std::uint8_t> output) {
    return std::all_of(output.begin(), output.end(), [](std::uint8_t byte) { return byte == 0x5a; });
}

}  // namespace

unsigned channel_count(const EncoderConfig &config) { return config.channel_mode == TAVIK_MODE_MONO ? 1 : 2; }

Protocol::Answer Protocol::next_call(std::uint32_t samples) {
    std::int32_t status = TAVIK_OK;
    if (samples > 0) {
        frames_taken_ = closing_frames_ > 0 ? 3 : std::min(frames_taken_ + 1, 3u);
        closing_frames_ = 0;
        if (samples < TAVIK_FRAME_LENGTH) status = TAVIK_STATUS_PARTIAL_FRAME;
    } else {
        if (frames_taken_ == 0 || closing_frames_ == 2) return {1, TAVIK_STATUS_END_OF_STREAM, false};
        status = closing_frames_ == 1 ? TAVIK_STATUS_END_OF_STREAM : TAVIK_STATUS_FLUSHING;
        if (frames_taken_ == 1 && !emits_priming_frame_) {
            frames_taken_ = 2;  // a frame of silence in its place
        } else {
            frames_taken_ = 3;
            ++closing_frames_;
        }
    }
    if (is_filling()) return {1, status == TAVIK_OK ? std::int32_t{TAVIK_STATUS_NO_OUTPUT} : status, false};
    has_given_frame_ = true;
    return {status == TAVIK_OK ? 0 : 1, status, true};
}

void CheckedEncoder::renew(std::uint8_t stale) {
    context_ = reinterpret_cast<EncoderContext *>(memory_.block(sizeof(EncoderContext), stale, flush_, 8).data());
}

std::int32_t CheckedEncoder::init(const EncoderConfig &config) {
    auto *passing = reinterpret_cast<EncoderConfig *>(config_.block(sizeof(config), 0, flush_).data());
    *passing = config;
    const std::int32_t result = TAVIK_Init(context_, passing);
    require(memory_.guard_is_intact(), "TAVIK_Init writes around the context");
    require(std::memcmp(passing, &config, sizeof(config)) == 0, "TAVIK_Init changes the configuration");
    require(result == (status() == TAVIK_OK ? 0 : -1), "TAVIK_Init: result and status disagree");
    config_.block(sizeof(config), 0xff);  // gone before the first frame
    channels_ = channel_count(config);
    protocol_ = Protocol(config.emit_priming_frame == 1);
    return status();
}

std::span<const std::uint8_t> CheckedEncoder::encode(std::span<const std::int16_t> pcm, std::uint32_t told) {
    const auto input = input_.block(pcm.size_bytes(), 0, flush_);
    std::copy(pcm.begin(), pcm.end(), reinterpret_cast<std::int16_t *>(input.data()));
    const auto output = output_block();
    std::uint32_t samples = told, bytes = 0xffffffff;
    const std::int32_t result =
        TAVIK_Encode(context_, reinterpret_cast<const std::int16_t *>(input.data()), &samples, output.data(), &bytes);
    const Protocol::Answer answer = protocol_.next_call(told);

    require(memory_.guard_is_intact(), "TAVIK_Encode writes around the context");
    require(input_.guard_is_intact() && output_.guard_is_intact(), "TAVIK_Encode writes around a buffer");
    require(std::equal(pcm.begin(), pcm.end(), reinterpret_cast<const std::int16_t *>(input.data())),
            "TAVIK_Encode changes its input");
    require(samples == std::min<std::uint32_t>(told, TAVIK_FRAME_LENGTH), "TAVIK_Encode gives a wrong sample count");
    require(status() == answer.status, "TAVIK_Encode gives status ", status());
    require(result == answer.result, "TAVIK_Encode returns ", result);
    require(answer.gives_frame == (bytes > 0), "TAVIK_Encode gives ", bytes, " bytes");
    require(bytes <= output.size(), "TAVIK_Encode reports too many bytes");
    require(is_stale(output.subspan(bytes)), "TAVIK_Encode writes behind the frame");
    return output.first(bytes);
}

void CheckedEncoder::encode_with_absent_pointers() {
    const auto input = input_.block(2 * TAVIK_FRAME_LENGTH * sizeof(std::int16_t), 1, flush_);
    const auto output = output_block();
    const auto *pcm = reinterpret_cast<const std::int16_t *>(input.data());
    std::uint32_t samples = TAVIK_FRAME_LENGTH, bytes = 4711;
    const EncoderContext before = *context_;
    const std::int32_t results[] = {TAVIK_Encode(nullptr, pcm, &samples, output.data(), &bytes),
                                    TAVIK_Encode(context_, nullptr, &samples, output.data(), &bytes),
                                    TAVIK_Encode(context_, pcm, nullptr, output.data(), &bytes),
                                    TAVIK_Encode(context_, pcm, &samples, nullptr, &bytes),
                                    TAVIK_Encode(context_, pcm, &samples, output.data(), nullptr)};
    for (const std::int32_t result : results) require(result == -1, "result ", result, " without a pointer");
    require(status() == TAVIK_ERR_NULL_POINTER, "status ", status(), " without a pointer");
    require(samples == TAVIK_FRAME_LENGTH && bytes == 4711 && is_stale(output),
            "something is written without a pointer");
    require(std::equal(std::begin(before.opaque), std::end(before.opaque), context_->opaque),
            "the context changes without a pointer");
}

}  // namespace tavik_test
