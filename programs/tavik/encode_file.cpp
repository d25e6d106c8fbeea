#include "encode_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include "audio_reader.h"
#include "bit_rates.h"
#include "frame_writer.h"
#include "output_file.h"
#include "stream_encoder.h"
#include "verification.h"

namespace tavik {
namespace {

// Samples for one frame, and how many of them per channel are there.
struct Block {
    std::array<int16_t, 2 * TAVIK_FRAME_LENGTH> samples{};
    size_t count = 0;
};

void read_block(AudioReader &reader, uint32_t channels, Block &block) {
    block.count = reader.read(std::span(block.samples).first(TAVIK_FRAME_LENGTH * channels));
}

void make_directories(const std::string &output) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(output).parent_path(), error);
    if (error) throw ProgramError(ExitCode::output, output, "cannot make its directory: " + error.message());
}

EncoderConfig make_config_for(const Job &job, const Options &options, AudioFormat source) {
    try {
        return make_config(options, job.format, source);
    } catch (const ProgramError &error) {
        throw ProgramError(error.exit_code(), input_name(job.input), error.what());
    }
}

// What the stages of one file share.
struct Work {
    AudioReader &reader;
    StreamEncoder &encoder;
    FrameWriter &writer;
    const std::function<void(FileProgress)> &report;
};

// Encodes everything from `block`, the first one, to the end of the input. What identifies each frame is kept if there
// is a place for it.
void encode_stream(const Work &work, Block &block, EncodedFile &result, std::vector<FrameMark> *marks) {
    const uint32_t channels = channel_count(result.config);
    while (!work.encoder.finished()) {
        const std::span<const uint8_t> frame = work.encoder.encode(block.samples.data(), block.count);
        if (!frame.empty()) {
            work.writer.write(frame);
            if (marks != nullptr) marks->push_back(mark_of(frame));
            result.frame_bytes += frame.size();
            ++result.frames;
        }
        result.samples += block.count;
        work.report({work.reader.decoder().seconds(), work.reader.decoder().duration()});
        read_block(work.reader, channels, block);
    }
}

EncodedFile encode_opened(const Options &options, const Job &job, AudioReader &reader,
                          const std::function<void(FileProgress)> &report) {
    EncodedFile result;
    result.format = job.format;
    result.source = reader.source();
    result.config = make_config_for(job, options, result.source);
    StreamEncoder encoder(result.config);

    // The output is not touched before the input has shown that there is something to write.
    Block block;
    reader.set_output({result.config.sample_rate, channel_count(result.config)}, options.gain);
    read_block(reader, channel_count(result.config), block);
    if (block.count == 0) throw ProgramError(ExitCode::input, input_name(job.input), "no audio samples");

    if (options.verify && OutputFile::is_direct(job.output)) {
        throw ProgramError(ExitCode::usage, output_name(job.output), "cannot be read back for --verify");
    }
    if (job.makes_directories) make_directories(job.output);
    OutputFile output(job.output, options.replace ? OutputFile::Existing::replace : OutputFile::Existing::refuse);
    FrameWriter writer(output, job.format, result.config, reader.decoder());
    std::vector<FrameMark> marks;
    encode_stream({reader, encoder, writer, report}, block, result, options.verify ? &marks : nullptr);
    writer.finish(result.samples);
    result.bytes = output.size();
    if (const auto damage = reader.decoder().damage()) {
        if (options.strict) throw ProgramError(ExitCode::input, input_name(job.input), *damage);
        result.warnings.push_back(*damage);
    }
    std::ranges::copy(describe(reader.decoder().time_errors(), options.start_edit),
                      std::back_inserter(result.warnings));
    if (const auto warning = reader.level().warning()) result.warnings.push_back(*warning);
    if (options.verify) verify(output, result, marks);
    result.verified = options.verify;
    output.commit();
    return result;
}

}  // namespace

EncodedFile encode_file(const Options &options, const Job &job, const std::function<void(FileProgress)> &report) {
    if (job.problem) throw ProgramError(*job.problem);
    const auto start = std::chrono::steady_clock::now();
    AudioReader reader({.path = job.input,
                        .pcm = options.pcm,
                        .track = options.track,
                        .language = options.language,
                        .keeps_start = options.start_edit,
                        .is_thorough = options.strict || options.verify});
    EncodedFile result = encode_opened(options, job, reader, report);
    result.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

}  // namespace tavik
