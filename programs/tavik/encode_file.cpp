// Input, encoder and output joined, one frame at a time, so that memory does not grow with the file; and the messages.
#include "encode_file.h"

#include <array>
#include <chrono>
#include <iomanip>
#include <sstream>

#include "audio_reader.h"
#include "encoder_settings.h"
#include "message.h"
#include "output_file.h"
#include "program_error.h"
#include "stream_encoder.h"

namespace tavik {
namespace {

// What went through the encoder.
struct Totals {
    uint64_t samples = 0;  // per channel, at the rate of the output
    uint64_t frames = 0;
    uint64_t bytes = 0;
    double seconds = 0;  // time that the work took
};

// Samples for one frame, and how many of them per channel are there.
struct Block {
    std::array<int16_t, 2 * TAVIK_FRAME_LENGTH> samples{};
    size_t count = 0;
};

void read_block(AudioReader &reader, uint32_t channels, Block &block) {
    block.count = reader.read(std::span(block.samples).first(TAVIK_FRAME_LENGTH * channels));
}

// Encodes everything from `block`, the first one, to the end of the input.
Totals encode_stream(AudioReader &reader, uint32_t channels, Block &block, StreamEncoder &encoder, OutputFile &output) {
    Totals totals;
    while (!encoder.finished()) {
        const std::span<const uint8_t> frame = encoder.encode(block.samples.data(), block.count);
        output.write(frame);
        totals.samples += block.count;
        totals.frames += frame.empty() ? 0 : 1;
        totals.bytes += frame.size();
        read_block(reader, channels, block);
    }
    return totals;
}

const char *mode_text(uint32_t channel_mode) {
    switch (channel_mode) {
        case TAVIK_MODE_MONO: return "mono";
        case TAVIK_MODE_STEREO: return "stereo";
        default: return "two mono channels";
    }
}

const char *framing_text(uint32_t header_type) {
    switch (header_type) {
        case TAVIK_HEADER_ADTS: return "ADTS";
        case TAVIK_HEADER_ADIF: return "ADIF";
        default: return "raw frames";
    }
}

std::string format_text(const EncoderConfig &config, AudioFormat source) {
    const uint32_t channels = channel_count(config);
    std::ostringstream text;
    text << config.sample_rate << " Hz";
    if (source.rate != config.sample_rate) text << " (from " << source.rate << " Hz)";
    text << ", " << mode_text(config.channel_mode);
    if (source.channels != channels)
        text << " (from " << source.channels << (source.channels == 1 ? " channel)" : " channels)");
    text << ", " << config.bit_rate * channels << " bit/s (" << config.bit_rate << " per channel), "
         << (config.constant_rate != 0 ? "constant" : "variable") << " rate, " << framing_text(config.header_type);
    return text.str();
}

std::string totals_text(const Totals &totals, uint32_t rate) {
    const double duration = static_cast<double>(totals.samples) / rate;
    const double coded_duration = static_cast<double>(totals.frames * TAVIK_FRAME_LENGTH) / rate;
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << duration << " s, " << totals.bytes << " bytes, mean "
         << std::setprecision(0) << static_cast<double>(totals.bytes * 8) / coded_duration << " bit/s, "
         << std::setprecision(1) << duration / totals.seconds << "x real time";
    return text.str();
}

void warn_of_damage(const std::string &input, const Damage &damage) {
    std::ostringstream text;
    text << "tavik: " << input << ": warning: damaged at " << std::fixed << std::setprecision(3) << damage.seconds
         << " s (" << damage.reason << "); encoded what could be decoded";
    print_line(text.str());
}

}  // namespace

void encode_file(const Options &options) {
    const auto start = std::chrono::steady_clock::now();
    refuse_same_file(options.input, options.output);
    AudioReader reader(options.input);
    const EncoderConfig config = make_config(options, reader.source());
    const uint32_t channels = channel_count(config);
    StreamEncoder encoder(config);

    // The output is not touched before the input has shown that there is something to write.
    Block block;
    reader.set_output({config.sample_rate, channels});
    read_block(reader, channels, block);
    if (block.count == 0) throw ProgramError(ExitCode::input, options.input, "no audio samples");

    OutputFile output(options.output);
    Totals totals = encode_stream(reader, channels, block, encoder, output);
    output.commit();
    totals.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    if (reader.damage()) warn_of_damage(options.input, *reader.damage());
    if (options.quiet) return;
    print_line(options.input + " -> " + options.output + ": " + format_text(config, reader.source()) + ", " +
               totals_text(totals, config.sample_rate));
}

}  // namespace tavik
