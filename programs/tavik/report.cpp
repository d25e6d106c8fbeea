// Keys and values of the JSON objects are an interface: scripts depend on them.
#include "report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

extern "C" {
#include <libavutil/base64.h>
}

#include "bit_rates.h"
#include "file_names.h"

namespace tavik {
namespace {

// Keys keep the order in which they are set.
using Json = nlohmann::ordered_json;

const char *mode_name(const EncoderConfig &config) {
    return channel_mode_name(static_cast<ChannelMode>(config.channel_mode));
}

std::string names_text(const Job &job) { return input_name(job.input) + " -> " + output_name(job.output); }

// In ASCII, with escapes. Bytes that are not valid UTF-8 are replaced, because JSON cannot contain them.
std::string to_line(const Json &json) { return json.dump(-1, ' ', true, Json::error_handler_t::replace); }

bool is_utf8(const std::string &text) { return Json::parse(to_line(text)) == text; }

std::string base64(const std::string &bytes) {
    std::vector<char> text(AV_BASE64_SIZE(bytes.size()));
    const std::vector<uint8_t> data(bytes.begin(), bytes.end());
    av_base64_encode(text.data(), static_cast<int>(text.size()), data.data(), static_cast<int>(data.size()));
    return text.data();
}

// A name that is not valid UTF-8 is added a second time in Base64, with all its bytes.
void add_name(Json &json, const std::string &key, const std::string &name) {
    json[key] = name;
    if (!is_utf8(name)) json[key + "_base64"] = base64(name);
}

Json event(const char *name, const Job &job) {
    Json json{{"event", name}};
    add_name(json, "input", job.input);
    add_name(json, "output", job.output);
    return json;
}

// To a whole number of microseconds.
double rounded(double seconds) { return std::round(seconds * 1e6) / 1e6; }

double speed(double duration, double elapsed) { return elapsed > 0 ? duration / elapsed : 0; }

void add_replay_gain(Json &json, const char *whose, const std::optional<ReplayGain> &measured) {
    if (!measured) return;
    json[std::string(whose) + "_gain"] = std::round(measured->gain * 100) / 100;
    json[std::string(whose) + "_peak"] = rounded(measured->peak);
}

// Facts about the input, and what was done with its time errors and its level.
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

// With at least two digits.
std::string short_number(double value) { return fmt::format("{:.{}f}", value, value < 9.95 ? 1 : 0); }

// As a multiple of real time.
std::string speed_text(double duration, double elapsed) { return short_number(speed(duration, elapsed)) + "x"; }

std::string size_text(uint64_t bytes) {
    const double thousands = static_cast<double>(bytes) / 1e3;
    return thousands < 999.5 ? short_number(thousands) + " kB" : short_number(thousands / 1e3) + " MB";
}

std::string source_details(const EncodedFile &file) {
    std::string text = "  source: ";
    if (file.track.count > 1) text += fmt::format("track {} of {}", file.track.number, file.track.count);
    if (file.track.count > 1) text += file.track.language.empty() ? ", " : fmt::format(" ({}), ", file.track.language);
    text += fmt::format("{} channel{} at {} Hz", file.source.channels, file.source.channels == 1 ? "" : "s",
                        file.source.rate);
    return file.gain == 0 ? text : text + fmt::format(", gain {:+.2f} dB", file.gain);
}

std::string coding_details(const EncodedFile &file) {
    const uint32_t per_channel = file.config.bit_rate;
    return fmt::format("  coding: {}, {} rate, {} bit/s ({} per channel)", names_of(file.format).text,
                       file.config.constant_rate != 0 ? "constant" : "variable",
                       per_channel * channel_count(file.config), per_channel);
}

std::string result_details(const EncodedFile &file) {
    return fmt::format("  result: {:.3f} s, {} samples, {} frames, {} bytes, {:.0f} bit/s", file.duration(),
                       file.samples, file.frames, file.bytes, file.mean_bit_rate());
}

}  // namespace

std::vector<std::string> encoded_text(const Job &job, const EncodedFile &file, bool verbose) {
    const EncoderConfig &config = file.config;
    std::string line = fmt::format("{}: {}, ", names_text(job), clock_text(std::max(1.0, std::round(file.duration()))));
    if (file.track.count > 1) line += fmt::format("track {}/{}, ", file.track.number, file.track.count);
    line += fmt::format("{} {:g} kHz, {:.0f} kbit/s, {}, {}", mode_name(config), config.sample_rate / 1e3,
                        file.mean_bit_rate() / 1e3, size_text(file.bytes), speed_text(file.duration(), file.elapsed));
    if (file.verified) line += ", verified";
    std::vector<std::string> lines{line};
    if (verbose) {
        lines.push_back(source_details(file));
        lines.push_back(coding_details(file));
        lines.push_back(result_details(file));
    }
    return lines;
}

std::string skipped_text(const Job &job) { return names_text(job) + ": skipped, " + job.skip_reason; }

std::string warning_text(const Job &job, const std::string &warning) {
    return fmt::format("{}: warning: {}", input_name(job.input), warning);
}

std::string summary_text(const Summary &summary) {
    std::string text = fmt::format("{} files: {} encoded", summary.files, summary.encoded);
    if (summary.skipped > 0) text += fmt::format(", {} skipped", summary.skipped);
    if (summary.failed > 0) text += fmt::format(", {} failed", summary.failed);
    return text + fmt::format("; {} of audio in {:.1f} s, {}", clock_text(summary.duration), summary.elapsed,
                              speed_text(summary.duration, summary.elapsed));
}

std::string encoded_json(const Job &job, const EncodedFile &file) {
    const EncoderConfig &config = file.config;
    Json json = event("encoded", job);
    json["format"] = names_of(file.format).option;
    json["sample_rate"] = config.sample_rate;
    json["channels"] = channel_count(config);
    json["mode"] = mode_name(config);
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
    json["not_kept"] = file.not_kept;
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
