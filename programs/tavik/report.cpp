// The keys of the JSON objects are an interface: scripts depend on them.
#include "report.h"

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "bit_rates.h"
#include "file_names.h"

namespace tavik {
namespace {

// Keeps the keys in the order in which they are set.
using Json = nlohmann::ordered_json;

const char *mode_text(uint32_t channel_mode) {
    switch (channel_mode) {
        case TAVIK_MODE_MONO: return "mono";
        case TAVIK_MODE_STEREO: return "stereo";
        default: return "two mono channels";
    }
}

// Named as on the command line.
const char *mode_name(uint32_t channel_mode) {
    return channel_mode == TAVIK_MODE_TWO_MONO ? "two-mono" : mode_text(channel_mode);
}

std::string names_text(const Job &job) { return input_name(job.input) + " -> " + output_name(job.output); }

Json event(const char *name, const Job &job) { return {{"event", name}, {"input", job.input}, {"output", job.output}}; }

// In ASCII, with escapes. Bytes of a file name that are no UTF-8 are replaced, since JSON has no place for them.
std::string to_line(const Json &json) { return json.dump(-1, ' ', true, Json::error_handler_t::replace); }

// Fractions of a second beyond the microsecond are noise.
double rounded(double seconds) { return std::round(seconds * 1e6) / 1e6; }

double speed(double duration, double elapsed) { return elapsed > 0 ? duration / elapsed : 0; }

void add_replay_gain(Json &json, const char *whose, const std::optional<ReplayGain> &measured) {
    if (!measured) return;
    json[std::string(whose) + "_gain"] = std::round(measured->gain * 100) / 100;
    json[std::string(whose) + "_peak"] = rounded(measured->peak);
}

// What was found in the input beside its samples, and done about it.
void add_source_facts(Json &json, const EncodedFile &file) {
    json["track"] = file.track.number;
    json["tracks"] = file.track.count;
    json["language"] = file.track.language.empty() ? Json() : Json(file.track.language);
    json["time_errors"] = Json::array();
    for (const TimeError &error : file.time_errors) {
        json["time_errors"].push_back(
            {{"kind", name_of(error.kind)}, {"at", rounded(error.at)}, {"seconds", rounded(error.seconds)}});
    }
    json["clipped"] = file.clipped;
    json["gain"] = rounded(file.gain);
    add_replay_gain(json, "track", file.replay_gain.track);
    add_replay_gain(json, "album", file.replay_gain.album);
}

}  // namespace

std::string encoded_text(const Job &job, const EncodedFile &file) {
    const EncoderConfig &config = file.config;
    const uint32_t channels = channel_count(config);
    std::string text = fmt::format("{}: {} Hz", names_text(job), config.sample_rate);
    if (file.source.rate != config.sample_rate) text += fmt::format(" (from {} Hz)", file.source.rate);
    text += fmt::format(", {}", mode_text(config.channel_mode));
    if (file.source.channels != channels) {
        text += fmt::format(" (from {} channel{})", file.source.channels, file.source.channels == 1 ? "" : "s");
    }
    text += fmt::format(
        ", {} bit/s ({} per channel), {} rate, {}, {:.3f} s, {} bytes, mean {:.0f} bit/s, {:.1f}x real time",
        config.bit_rate * channels, config.bit_rate, config.constant_rate != 0 ? "constant" : "variable",
        names_of(file.format).text, file.duration(), file.bytes, file.mean_bit_rate(),
        speed(file.duration(), file.elapsed));
    return text + (file.verified ? ", verified" : "");
}

std::string skipped_text(const Job &job) { return names_text(job) + ": skipped, " + job.skip_reason; }

std::string warning_text(const Job &job, const std::string &warning) {
    return fmt::format("{}: warning: {}", input_name(job.input), warning);
}

std::string summary_text(const Summary &summary) {
    std::string text = fmt::format("{} files: {} encoded", summary.files, summary.encoded);
    if (summary.skipped > 0) text += fmt::format(", {} skipped", summary.skipped);
    if (summary.failed > 0) text += fmt::format(", {} failed", summary.failed);
    return text + fmt::format("; {} of audio in {:.1f} s, {:.1f}x real time", clock_text(summary.duration),
                              summary.elapsed, speed(summary.duration, summary.elapsed));
}

std::string encoded_json(const Job &job, const EncodedFile &file) {
    const EncoderConfig &config = file.config;
    Json json = event("encoded", job);
    json["format"] = names_of(file.format).option;
    json["sample_rate"] = config.sample_rate;
    json["channels"] = channel_count(config);
    json["mode"] = mode_name(config.channel_mode);
    json["bit_rate"] = config.bit_rate * channel_count(config);
    json["bit_rate_per_channel"] = config.bit_rate;
    json["constant_rate"] = config.constant_rate != 0;
    json["source_rate"] = file.source.rate;
    json["source_channels"] = file.source.channels;
    add_source_facts(json, file);
    json["samples"] = file.samples;
    json["duration"] = rounded(file.duration());
    json["frames"] = file.frames;
    json["bytes"] = file.bytes;
    json["mean_bit_rate"] = std::lround(file.mean_bit_rate());
    json["elapsed"] = rounded(file.elapsed);
    json["speed"] = rounded(speed(file.duration(), file.elapsed));
    json["verified"] = file.verified;
    json["warnings"] = file.warnings;
    return to_line(json);
}

std::string skipped_json(const Job &job) {
    Json json = event("skipped", job);
    json["reason"] = job.skip_reason;
    return to_line(json);
}

std::string failed_json(const Job &job, const std::string &problem, ExitCode exit_code) {
    Json json = event("failed", job);
    json["error"] = problem;
    json["exit_code"] = static_cast<int>(exit_code);
    return to_line(json);
}

std::string progress_json(const Job &job, const FileProgress &progress) {
    Json json = event("progress", job);
    json["seconds"] = rounded(progress.seconds);
    json["duration"] = progress.duration ? Json(rounded(*progress.duration)) : Json();
    json["fraction"] = progress.duration ? Json(rounded(progress.fraction())) : Json();
    return to_line(json);
}

std::string summary_json(const Summary &summary) {
    return to_line({{"event", "summary"},
                    {"files", summary.files},
                    {"encoded", summary.encoded},
                    {"skipped", summary.skipped},
                    {"failed", summary.failed},
                    {"duration", rounded(summary.duration)},
                    {"elapsed", rounded(summary.elapsed)}});
}

std::string clock_text(double seconds) {
    const auto whole = static_cast<int64_t>(std::ceil(seconds));
    const int64_t hours = whole / 3600;
    const int64_t minutes = whole / 60 % 60;
    if (hours > 0) return fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60);
    return fmt::format("{}:{:02}", minutes, whole % 60);
}

}  // namespace tavik
