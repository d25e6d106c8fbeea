// Whole streams: configurations, samples and the order of calls are drawn from the input. A reused context is compared
// with fresh ones. Calls are checked against the protocol, frames by the strict reader and an independent decoder.
#include <algorithm>
#include <optional>
#include <vector>

#include "draw_config.h"
#include "input_bytes.h"
#include "sound_check.h"
#include "support/reference_decoder.h"
#include "support/require.h"
#include "support/stream_harness.h"
#include "synthesiser.h"
#include "target.h"

namespace tavik_fuzz {
namespace {

using namespace tavik_test;

constexpr unsigned max_calls = 96;  // per input

struct DrawnConfig {
    EncoderConfig config;
    std::int32_t status;  // expected from TAVIK_Init
};

// Draws a configuration, one in sixteen with an invalid field.
DrawnConfig draw_config(InputBytes &input) {
    EncoderConfig config = draw_valid_config(input);
    if (input.byte() < 0xf0) return {config, TAVIK_OK};
    const std::uint32_t high = 2 + input.long_word() % 0xfffffffe;  // from 2 on
    switch (input.below(11)) {
        case 0: config.channel_mode = std::max(high, 3u); return {config, TAVIK_ERR_CHANNEL_MODE};
        case 1: config.sample_rate += 1 + high % 16; return {config, TAVIK_ERR_SAMPLE_RATE};
        case 2: config.bit_rate = high % TAVIK_MIN_BIT_RATE; return {config, TAVIK_ERR_BIT_RATE};
        case 3: config.bit_rate = std::max(high, 6 * config.sample_rate + 1); return {config, TAVIK_ERR_BIT_RATE};
        case 4: config.header_type = std::max(high, 3u); return {config, TAVIK_ERR_HEADER_TYPE};
        case 5: config.constant_rate = high; return {config, TAVIK_ERR_CONSTANT_RATE};
        case 6: config.emit_priming_frame = high; return {config, TAVIK_ERR_PRIMING_FRAME};
        case 7: config.tns_disable = high; return {config, TAVIK_ERR_TNS_DISABLE};
        case 8: config.home = high; return {config, TAVIK_ERR_HOME};
        case 9: config.original_copy = high; return {config, TAVIK_ERR_ORIGINAL_COPY};
        default: config.copyright_id_present = high; return {config, TAVIK_ERR_COPYRIGHT_ID_PRESENT};
    }
}

// Objects that are expensive to create: all inputs share them, and each input resets them.
struct SharedObjects {
    CheckedEncoder encoder;                   // one context for all streams of an input
    CheckedEncoder fresh{Flush::with_start};  // a fresh context for every stream
    ReferenceDecoder decoder;
};

// One stream, starting with its initialisation.
class Stream {
 public:
    Stream(SharedObjects &shared, const EncoderConfig &config, bool has_fresh, Outcome &outcome)
        : shared_(shared), has_fresh_(has_fresh), reader_(config), sound_(config), outcome_(outcome) {
        shared.decoder.start(config);
        shared.fresh.renew(0x3c);
        if (has_fresh) shared.fresh.init(config);
    }

    void call(std::span<const std::int16_t> pcm, std::uint32_t count) {
        const auto frame = shared_.encoder.encode(pcm, count);
        require(!has_fresh_ || std::ranges::equal(frame, shared_.fresh.encode(pcm, count)),
                "a reused context and a fresh one give different frames");
        const bool is_over = count == 0 && frame.empty() && shared_.encoder.status() == TAVIK_STATUS_END_OF_STREAM;
        if (!is_over) sound_.take_input(pcm);
        if (frame.empty()) return;
        const Frame &fields = reader_.read(frame);
        sound_.check(fields, shared_.decoder.decode(frame, fields.adif_header_bytes));
        outcome_.output.add(frame);
        ++outcome_.frames;
    }

 private:
    SharedObjects &shared_;
    const bool has_fresh_;
    StreamReader reader_;
    SoundCheck sound_;
    Outcome &outcome_;
};

// Runs streams one after the other; the input decides whether each is abandoned or completed.
class Script {
 public:
    Script(InputBytes &input, SharedObjects &shared, Outcome &outcome)
        : input_(input), shared_(shared), outcome_(outcome) {}

    void run() {
        while (!input_.empty() && calls_left_ > 0) {
            const auto [config, expected_status] = draw_config(input_);
            const std::int32_t status = shared_.encoder.init(config);
            require(status == expected_status, "TAVIK_Init gives ", status);
            if (status == TAVIK_OK) run_stream(config);
        }
    }

 private:
    enum Step : std::uint8_t { leave = 0, end_of_input = 1, absent_pointers = 2 };  // others: samples

    void run_stream(const EncoderConfig &config) {
        const bool has_fresh = input_.below(4) == 0;
        Stream stream(shared_, config, has_fresh, outcome_);
        while (!input_.empty() && calls_left_ > 0) {
            const std::uint8_t step = input_.byte();
            if (step % 32 == leave) return;
            if (step % 32 == end_of_input) {
                give_no_samples(stream, 1u + step / 64);
            } else if (step % 32 == absent_pointers) {
                shared_.encoder.encode_with_absent_pointers();
            } else {
                give_samples(stream, channel_count(config), 1u + step / 32);
            }
        }
        give_no_samples(stream, 4);
    }

    void give_no_samples(Stream &stream, unsigned calls) {
        for (; calls > 0 && calls_left_ > 0; --calls, --calls_left_) stream.call({}, 0);
    }

    void give_samples(Stream &stream, unsigned channels, unsigned calls) {
        Synthesiser left(input_);
        std::optional<Synthesiser> right;  // an independent signal for the second channel
        if (channels == 2 && input_.below(4) == 0) right.emplace(input_);
        const std::uint8_t choice = input_.byte();
        std::uint32_t count = TAVIK_FRAME_LENGTH;
        if (choice >= 0xf0) count = std::max<std::uint32_t>(input_.long_word(), TAVIK_FRAME_LENGTH);
        if (choice < 0x18) count = 1 + input_.word() % (TAVIK_FRAME_LENGTH - 1);
        std::vector<std::int16_t> pcm(std::min<std::size_t>(count, TAVIK_FRAME_LENGTH) * channels);
        for (; calls > 0 && calls_left_ > 0; --calls, --calls_left_) {
            left.fill(pcm, channels);
            if (right) right->fill_channel(pcm, channels, 1);
            stream.call(pcm, count);
        }
    }

    InputBytes &input_;
    SharedObjects &shared_;
    Outcome &outcome_;
    unsigned calls_left_ = max_calls;
};

}  // namespace

Outcome run_target(std::span<const std::uint8_t> input) {
    static SharedObjects shared;
    shared.encoder.renew(0xa5);
    Outcome outcome;
    InputBytes bytes(input);
    Script(bytes, shared, outcome).run();
    return outcome;
}

}  // namespace tavik_fuzz
