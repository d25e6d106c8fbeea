#include "encode_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include "audio_reader.h"
#include "bit_rates.h"
#include "frame_writer.h"
#include "interruption.h"
#include "output_file.h"
#include "recording.h"
#include "stream_encoder.h"
#include "tag_writer.h"
#include "verification.h"

namespace tavik {
namespace {

// Samples for one frame.
struct Block {
    std::array<int16_t, 2 * TAVIK_FRAME_LENGTH> samples{};
    size_t count = 0;  // samples per channel
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

void check_job(const Options &options, const Job &job) {
    if (job.problem) throw ProgramError(*job.problem);
    if (options.loudness && StreamInput::is_stream(job.input)) {
        throw ProgramError(ExitCode::usage, input_name(job.input), "cannot be read twice, as --loudness needs");
    }
}

Source source_of(const Options &options, const Job &job) {
    return {.path = job.input,
            .pcm = options.pcm,
            .track = options.track,
            .language = options.language,
            .keeps_start = options.start_edit,
            .checks_md5 = options.strict || options.verify};
}

// Progress of the current pass over a file: with --loudness, the first of two passes measures it.
FileProgress progress_of(const Options &options, const AudioDecoder &decoder, double passes_before) {
    const double passes = options.loudness ? 2 : 1;
    const auto duration = decoder.duration();
    if (!duration) return {decoder.seconds(), std::nullopt};
    return {decoder.seconds() + passes_before * *duration, passes * *duration};
}

// Gain in dB. With --apply-loudness it is limited so that the output does not clip.
double choose_gain(const Options &options, const Loudness &loudness) {
    const bool uses_album = options.loudness_gain == LoudnessGain::album && loudness.album;
    const auto &measured = uses_album ? loudness.album : loudness.track;
    if (options.loudness_gain == LoudnessGain::none || !measured) return options.gain;
    return std::min(measured->gain + options.gain, -20 * std::log10(measured->peak));
}

// Adds facts and warnings about an input that has been read to its end.
void report_input(const Options &options, const AudioReader &reader, EncodedFile &result) {
    const AudioDecoder &decoder = reader.decoder();
    result.track = decoder.track();
    result.time_errors = decoder.time_errors();
    result.clipped = reader.level().clipped();
    if (const auto damage = decoder.damage()) {
        if (options.strict) throw ProgramError(ExitCode::input, input_name(decoder.path()), *damage);
        result.warnings.push_back(*damage);
    }
    std::ranges::copy(describe(result.time_errors, options.start_edit), std::back_inserter(result.warnings));
    if (const auto warning = reader.level().warning()) result.warnings.push_back(*warning);
}

// Absent if an edit delays the start: the iTunSMPB tag cannot express that.
std::optional<PlayedPart> played_part(const EncodedFile &result) {
    return result.start > 0 ? std::nullopt : std::optional(PlayedPart{result.frames, result.samples});
}

// References to everything that encoding one file needs.
struct Work {
    const Options &options;
    const Job &job;
    AudioReader &reader;
    const Tags &tags;
    const ReportProgress &report;

    OutputFile::Existing existing() const {
        const bool replaces = options.replace || options.update;
        return replaces ? OutputFile::Existing::replace : OutputFile::Existing::refuse;
    }
};

// Encodes everything from `block`, the first one, to the end of the input. Appends the digest of each frame to
// `digests` unless it is null.
void encode_stream(const Work &work, FrameWriter &writer, Block &block, EncodedFile &result,
                   std::vector<FrameDigest> *digests) {
    StreamEncoder encoder(result.config);
    const uint32_t channels = channel_count(result.config);
    while (!encoder.finished()) {
        const std::span<const uint8_t> frame = encoder.encode(block.samples.data(), block.count);
        result.samples += block.count;
        if (!frame.empty()) {
            writer.write(frame, result.samples);
            if (digests != nullptr) digests->push_back(digest_of(frame));
            result.frame_bytes += frame.size();
            ++result.frames;
        }
        work.report(progress_of(work.options, work.reader.decoder(), work.options.loudness ? 1 : 0));
        read_block(work.reader, channels, block);
    }
    writer.finish();
    report_input(work.options, work.reader, result);
}

void write_file(const Work &work, Block &block, EncodedFile &result) {
    const bool verifies = work.options.verify;
    OutputFile output(work.job.output, work.existing());
    FrameWriter writer(output, result.format, result.config, work.reader.decoder(), work.tags, work.options.live);
    std::vector<FrameDigest> digests;
    encode_stream(work, writer, block, result, verifies ? &digests : nullptr);
    const bool is_file = result.format == Format::m4a && output.is_regular();
    if (is_file) write_tags(output, work.tags, played_part(result));
    result.bytes = output.size();
    if (verifies) verify(output, result, digests);
    result.verified = verifies;
    output.commit();
}

// Gives a complete recording its final format and name.
void finish_recording(const Work &work, OutputFile &draft, EncodedFile &result) {
    if (result.format != Format::m4a) {
        result.bytes = draft.size();
        draft.commit();
        return;
    }
    OutputFile output(work.job.output, work.existing());
    copy_recording(draft, output, result.config, work.reader.decoder(), work.tags, {result.frames, result.samples});
    write_tags(output, work.tags, played_part(result));
    result.bytes = output.size();
    output.commit();
    draft.discard();
}

// Writes into a file that is kept if anything goes wrong; error messages then name it.
void record(const Work &work, Block &block, EncodedFile &result) {
    OutputFile draft(work.job.output, work.existing(), OutputFile::Draft::visible);
    const std::string notice = "the recording is kept in " + draft.draft_name();
    set_interruption_notice(notice);
    try {
        FrameWriter writer(draft, result.format, result.config, work.reader.decoder(), work.tags, true);
        {
            const PeriodicSync sync(draft);
            encode_stream(work, writer, block, result, nullptr);
            sync.check();
        }
        finish_recording(work, draft, result);
    } catch (const ProgramError &error) {
        throw ProgramError(error.exit_code(), std::string(error.what()) + "; " + notice);
    }
    set_interruption_notice("");
}

std::string join(const std::vector<std::string> &names) { return fmt::to_string(fmt::join(names, ", ")); }

// The tags of the output. Adds what it cannot store to result.not_kept, and for M4A, where users expect tags to be
// kept, also to the warnings.
Tags tags_for(const Options &options, const AudioDecoder &source, bool has_chapters, EncodedFile &result) {
    Tags tags = read_tags(source, options, result.gain);
    set_replay_gain(tags, result.replay_gain);
    const bool loses_chapters = !has_chapters && source.container().nb_chapters > 0;
    if (result.format == Format::m4a) {
        const std::vector<std::string> &names = tags.not_kept;
        if (!names.empty()) result.warnings.push_back("tags that M4A cannot keep: " + join(names));
        if (!tags.changes.empty()) result.warnings.push_back("tags changed: " + join(tags.changes));
        if (loses_chapters) result.warnings.emplace_back("chapters cannot be written into a pipe");
    }
    result.not_kept = result.format == Format::m4a ? tags.not_kept : names_of(tags);
    if (loses_chapters) result.not_kept.emplace_back("chapters");
    return tags;
}

EncodedFile encode_opened(const Options &options, const Job &job, const Loudness &loudness, AudioReader &reader,
                          const ReportProgress &report) {
    EncodedFile result;
    result.format = job.format;
    result.source = reader.source();
    result.config = make_config_for(job, options, result.source);
    result.start = static_cast<uint64_t>(reader.decoder().start_samples(result.config.sample_rate));

    // The output is not opened before the input has delivered samples.
    Block block;
    result.gain = choose_gain(options, loudness);
    if (loudness.track) result.replay_gain.track = loudness.track->after(result.gain);
    if (loudness.album) result.replay_gain.album = loudness.album->after(result.gain);
    reader.set_output({result.config.sample_rate, channel_count(result.config)}, result.gain);
    read_block(reader, channel_count(result.config), block);
    if (block.count == 0) throw ProgramError(ExitCode::input, input_name(job.input), "no audio samples");

    if (options.verify && OutputFile::is_direct(job.output)) {
        throw ProgramError(ExitCode::usage, output_name(job.output), "cannot be read back for --verify");
    }
    if (job.makes_directories) make_directories(job.output);
    const bool has_chapters = job.format == Format::m4a && !OutputFile::is_direct(job.output);
    const Tags tags = tags_for(options, reader.decoder(), has_chapters, result);
    if (options.live && !OutputFile::is_direct(job.output)) {
        record({options, job, reader, tags, report}, block, result);
    } else {
        write_file({options, job, reader, tags, report}, block, result);
    }
    if (options.loudness && !loudness.track) result.warnings.emplace_back("too quiet to measure its loudness");
    return result;
}

}  // namespace

LoudnessState measure_file(const Options &options, const Job &job, const ReportProgress &report) {
    check_job(options, job);
    const auto choose_format = [&](AudioFormat source) {
        const EncoderConfig config = make_config_for(job, options, source);
        return AudioFormat{config.sample_rate, channel_count(config)};
    };
    return measure_loudness(source_of(options, job), choose_format,
                            [&](const AudioDecoder &decoder) { report(progress_of(options, decoder, 0)); });
}

EncodedFile encode_file(const Options &options, const Job &job, const Loudness &loudness,
                        const ReportProgress &report) {
    check_job(options, job);
    const auto start = std::chrono::steady_clock::now();
    AudioReader reader(source_of(options, job));
    EncodedFile result = encode_opened(options, job, loudness, reader, report);
    result.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

}  // namespace tavik
