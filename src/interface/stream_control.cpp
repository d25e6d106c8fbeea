// The encoder is one frame behind its input. In every channel a call's 1024 samples become the lookahead; the two
// frames before them are the block that is coded. At the end of the input, further calls code what is left, with
// silence as lookahead.
#include "interface/stream_control.h"

#include <algorithm>

#include "interface/frame_pipeline.h"
#include "interface/staging.h"

namespace tavik {
namespace {

// Values of stream_state: input frames so far, up to three, then the calls at the end of the input.
enum StreamState : u32 { no_input = 0, one_frame = 1, two_frames = 2, steady = 3, first_flush = 4, all_delivered = 5 };

// Advances the state by a call with count 0; false when everything has been delivered.
bool continue_end_of_input(EncoderState &state) {
    u32 &stream_state = state.coding.stream_state;
    state.status = TAVIK_STATUS_FLUSHING;
    switch (stream_state) {
        case one_frame: stream_state = state.config.emit_priming_frame == 1 ? first_flush : two_frames; return true;
        case two_frames:
        case steady: stream_state = first_flush; return true;
        case first_flush:
            stream_state = all_delivered;
            state.status = TAVIK_STATUS_END_OF_STREAM;
            return true;
        default: state.status = TAVIK_STATUS_END_OF_STREAM; return false;
    }
}

void continue_input(EncoderState &state, u32 count) {
    u32 &stream_state = state.coding.stream_state;
    stream_state = stream_state < steady ? stream_state + 1 : u32{steady};
    state.status = count < frame_length ? TAVIK_STATUS_PARTIAL_FRAME : TAVIK_OK;
}

// Block switching begins with the first block that will be delivered.
bool block_switching_starts(const EncoderState &state) {
    return state.coding.stream_state > (state.config.emit_priming_frame == 1 ? no_input : two_frames);
}

// While the delay line fills, no frame is due.
bool frame_is_withheld(const EncoderState &state) {
    return state.coding.first_frame_pending == 1 &&
           state.coding.stream_state <= (state.config.emit_priming_frame == 1 ? one_frame : two_frames);
}

}  // namespace

i32 encode(EncoderState &state, const i16 *pcm, u32 &sample_count, u8 *output, u32 &output_bytes) {
    const u32 count = std::min(sample_count, frame_length);
    sample_count = count;
    output_bytes = 0;  // a host may use one variable for both
    if (count != 0) {
        continue_input(state, count);
    } else if (!continue_end_of_input(state)) {
        return result_other;
    }
    stage_input(state, pcm, count);

    if (block_switching_starts(state)) state.coding.block_switching_active = 1;
    const auto previous_window_sequence = decide_windows(state);
    if (frame_is_withheld(state)) {
        if (state.status == TAVIK_OK) state.status = TAVIK_STATUS_NO_OUTPUT;
        return result_other;
    }
    output_bytes = encode_frame(state, previous_window_sequence, output);
    return state.status == TAVIK_OK ? result_full_frame : result_other;
}

}  // namespace tavik
