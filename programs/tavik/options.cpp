// CLI11 parses and checks the command line and prints the help text.
#include "options.h"

#include <fmt/format.h>
#include <taglib/tstring.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <charconv>
#include <iostream>
#include <map>

#include "file_names.h"
#include "pictures.h"
#include "program_error.h"
#include "stream_encoder.h"

namespace tavik {
namespace {

constexpr const char *description =
    "Encodes audio as MPEG AAC Low Complexity. Reads whatever FFmpeg's libraries can\n"
    "read; resamples and mixes to mono or stereo as necessary.";

constexpr const char *footer =
    "Examples:\n"
    "  tavik song.flac                           song.m4a next to it, 128 kbit/s\n"
    "  tavik film.mkv -o film.aac -b 192k        an ADTS stream of its audio\n"
    "  tavik talk.wav --mode mono -b 40k --cbr   mono, constant rate\n"
    "  tavik music/ -o encoded/ --update         a folder; later only what is new\n"
    "  arecord -q -f cd | tavik - -o - --adts | nc host 9000\n"
    "                                            live: frames as they are coded\n"
    "\n"
    "Exit status:\n"
    "  0 all done, 1 some of several files failed, 2 wrong usage, 3 unusable input,\n"
    "  4 output not written, 129/130/143 interrupted by SIGHUP/SIGINT/SIGTERM,\n"
    "  70 internal error\n"
    "An output appears under its name only when it is complete.";

constexpr size_t help_column = 26;  // where descriptions start; 54 columns are left for them

constexpr unsigned max_jobs = 256;
constexpr unsigned max_tracks = 1000;
constexpr double max_gain_db = 60;

// Shows only the name of an option's value, not its range or the options that it excludes.
class HelpFormatter : public CLI::Formatter {
    std::string make_option_opts(const CLI::Option *option) const override {
        const std::string &text = option->get_option_text();
        return text.empty() ? "" : " " + text;
    }
};

std::map<std::string, LoudnessGain> loudness_gain_names() {
    return {{"track", LoudnessGain::track}, {"album", LoudnessGain::album}};
}

// Arguments that are converted after the whole command line has been accepted.
struct ArgumentTexts {
    std::string bit_rate;
    std::string mode;
    std::string pcm;
    std::string loudness_gain;
    std::vector<std::string> tags;
    std::string cover;
};

std::optional<uint32_t> to_number(std::string_view text) {
    uint32_t value = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || rest != text.data() + text.size()) return std::nullopt;
    return value;
}

// Bit rate in bit/s from a text such as 128000 or 128k.
std::optional<uint64_t> to_bit_rate(std::string_view text) {
    const bool is_thousands = text.ends_with('k') || text.ends_with('K');
    if (is_thousands) text.remove_suffix(1);
    const std::optional<uint32_t> value = to_number(text);
    if (!value) return std::nullopt;
    return is_thousands ? *value * uint64_t{1000} : *value;
}

// From FORMAT[:RATE[:CHANNELS]].
std::optional<PcmFormat> to_pcm_format(const std::string &text) {
    static const std::set<std::string> sample_formats{"u8",    "s16le", "s16be", "s24le", "s24be",
                                                      "s32le", "s32be", "f32le", "f32be"};
    const std::vector<std::string> parts = CLI::detail::split(text, ':');
    if (parts.empty() || parts.size() > 3 || !sample_formats.contains(parts[0])) return std::nullopt;
    PcmFormat format{.sample_format = parts[0]};
    if (parts.size() > 1) format.rate = to_number(parts[1]).value_or(0);
    if (parts.size() > 2) format.channels = to_number(parts[2]).value_or(0);
    return is_valid_pcm(format.rate, format.channels) ? std::optional(format) : std::nullopt;
}

// Name in capitals and value, from KEY=VALUE.
std::pair<std::string, std::string> to_tag(const std::string &text) {
    const size_t sign = text.find('=');
    std::string key = text.substr(0, sign);
    std::ranges::transform(key, key.begin(), [](unsigned char c) { return std::toupper(c); });
    return {key, text.substr(sign + 1)};
}

// Validators for CLI11: they return an error message, or an empty string if the text is valid.

std::string check_file_name(const std::string &text) { return text.empty() ? "empty file name" : ""; }

std::string check_bit_rate(const std::string &text) {
    return to_bit_rate(text) ? "" : text + " is not a bit rate such as 128000 or 128k";
}

std::string check_rate(const std::string &text) {
    if (std::ranges::find(supported_rates, to_number(text).value_or(0)) != supported_rates.end()) return "";
    return fmt::format("{}: use {}", text, fmt::join(supported_rates, " "));
}

std::string check_mode(const std::string &text) {
    return find_channel_mode(text) ? "" : fmt::format("{}: use {}", text, fmt::join(channel_mode_names, " "));
}

std::string check_loudness_gain(const std::string &text) {
    return loudness_gain_names().contains(text) ? "" : text + ": use track or album";
}

std::string check_pcm(const std::string &text) {
    if (to_pcm_format(text)) return "";
    return text + ": use u8 or s16 s24 s32 f32 with le or be, as in s16le:44100:2";
}

std::string check_tag(const std::string &text) {
    const size_t sign = text.find('=');
    return sign != std::string::npos && sign > 0 ? "" : text + " is not a tag such as MOOD=calm";
}

void add_input_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Input";
    app.add_option("INPUT", options.inputs, "Files; directories for the audio files below them;\nstandard input as -")
        ->option_text("...")
        ->required()
        ->check(check_file_name);
    app.add_option("--pcm", texts.pcm,
                   "The inputs are samples without a header, for example\ns16le:48000:2 [44100 Hz, 2 channels]")
        ->option_text("FORMAT[:RATE[:CHANNELS]]")
        ->check(check_pcm)
        ->group(group);
    auto *track = app.add_option("--track", options.track, "Use the audio track with this number, from 1 [best]");
    track->option_text("N")->check(CLI::Range(unsigned{1}, max_tracks))->group(group);
    app.add_option("--language", options.language, "Use the audio track in this language, such as eng")
        ->option_text("LANG")
        ->excludes(track)
        ->group(group);
}

void add_output_options(CLI::App &app, Options &options) {
    const std::string group = "Output";
    app.add_option("-o,--output", options.output,
                   "File, or directory for several; - is standard output\n[next to each input]")
        ->option_text("PATH")
        ->check(check_file_name)
        ->group(group);
    auto *force = app.add_flag("-f,--force", options.replace, "Replace outputs that exist")->group(group);
    auto *skip = app.add_flag("--skip-existing", options.skip_existing, "Skip inputs whose output exists");
    skip->excludes(force)->group(group);
    app.add_flag("--update", options.update, "Skip inputs whose output is newer, replace older\noutputs")
        ->excludes(force, skip)
        ->group(group);
    app.add_flag("--strict", options.strict, "Damaged or truncated input is an error")->group(group);
    auto *verify = app.add_flag("--verify", options.verify, "Decode what was written and compare its structure");
    verify->group(group);
    app.add_flag("--live", options.live, "Endless input; an interrupt completes the output")
        ->excludes(verify)
        ->group(group);
}

// Adds the flags that choose the format; the one that is given sets `format`.
void add_format_options(CLI::App &app, std::optional<Format> &format, bool &start_edit) {
    const std::string group = "Format [by the extension of the output, else M4A]";
    const auto add = [&app, &format, &group](const char *flag, Format value, const char *text) {
        const auto select = [&format, value] { format = value; };
        return app.add_flag_callback(flag, select, text)->group(group);
    };
    CLI::Option *m4a = add("--m4a", Format::m4a, "MP4 file (.m4a): sample-exact, with tags and cover");
    CLI::Option *adts = add("--adts", Format::adts, "Stream (.aac) with a header before every frame");
    CLI::Option *adif = add("--adif", Format::adif, "Stream (.adif) with one header at the start");
    CLI::Option *raw = add("--raw-frames", Format::raw_frames, "Frames without headers (.raw)");
    m4a->excludes(adts, adif, raw);
    adts->excludes(adif, raw);
    adif->excludes(raw);
    app.add_flag("--start-edit", start_edit, "Late start: use an edit list instead of silence")
        ->excludes(adts, adif, raw)
        ->group(group);
}

void add_level_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Level";
    app.add_option("--gain", options.gain, "Amplify by this many dB; negative: attenuate")
        ->option_text("DB")
        ->check(CLI::Range(-max_gain_db, max_gain_db))
        ->group(group);
    app.add_flag("--loudness", options.loudness, "Measure by EBU R128 and write ReplayGain tags")->group(group);
    app.add_option("--apply-loudness", texts.loudness_gain, "Measure, and apply the gain of track or album")
        ->option_text("SCOPE")
        ->check(check_loudness_gain)
        ->group(group);
}

// The help text lists all of them in the description of the first.
void add_common_tags(CLI::App &app, Options &options, const std::string &group) {
    const char *text =
        "Set the title; in the same way:\n"
        "--artist,--album,--album-artist,--composer\n"
        "--genre,--date,--comment";
    for (const std::string key : {"title", "artist", "album", "album-artist", "composer", "genre", "date", "comment"}) {
        std::string plain = key;
        std::erase(plain, '-');
        const auto set = [&options, plain](const std::string &value) {
            options.tags.push_back(to_tag(std::string(plain).append("=").append(value)));
        };
        app.add_option_function<std::string>("--" + key, set, text)
            ->option_text("TEXT")
            ->group(key == "title" ? group : "");
    }
}

void add_tag_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Tags and cover (M4A)";
    const auto add = [&app, &group](const std::string &name, auto &variable, const char *type, const char *text) {
        return app.add_option(name, variable, text)->option_text(type)->allow_extra_args(false)->group(group);
    };
    add("--tag", texts.tags, "KEY=VALUE", "Set a tag, or remove it if the value is empty;\nmay be repeated")
        ->check(check_tag);
    add_common_tags(app, options, group);
    add("--cover", texts.cover, "FILE", "Picture for the front cover")->check(check_file_name);
    app.add_flag("--no-tags", options.no_tags, "Do not copy tags from the input")->group(group);
    app.add_flag("--no-cover", options.no_cover, "Do not copy pictures from the input")->group(group);
}

void add_coding_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Coding";
    app.add_option("-b,--bitrate", texts.bit_rate,
                   "Bit/s of all channels together\n[64k per channel, less below 44100 Hz]")
        ->option_text("RATE[k]")
        ->check(check_bit_rate)
        ->group(group);
    app.add_flag("--cbr", options.constant_rate, "Constant rate [variable]")->group(group);
    app.add_option("--rate", options.rate,
                   "Sampling rate of the output [that of the input, or\nthe next higher one that is supported]")
        ->option_text("HZ")
        ->check(check_rate)
        ->group(group);
    app.add_option("--mode", texts.mode,
                   "mono, stereo or two-mono (two independent channels)\n[mono or stereo, as the input]")
        ->option_text("MODE")
        ->check(check_mode)
        ->group(group);
    app.add_flag("--no-tns", options.no_tns, "Never use temporal noise shaping")->group(group);
    app.add_flag("--priming", options.priming,
                 "Begin with a priming frame: the first samples are\nexact, 1024 samples later [in MP4 files only]")
        ->group(group);
}

void add_report_options(CLI::App &app, Options &options) {
    const std::string group = "Reports";
    auto *quiet = app.add_flag("-q,--quiet", options.quiet, "Print warnings and errors only")->group(group);
    app.add_flag("-v,--verbose", options.verbose, "Print more about each file")->excludes(quiet)->group(group);
    app.add_flag("--no-progress", options.no_progress, "No progress bar and no progress objects")->group(group);
    app.add_flag("--json", options.json, "Print JSON objects, one in each line")->group(group);
}

void add_general_options(CLI::App &app, Options &options) {
    const std::string group = "General";
    app.add_option("-j,--jobs", options.jobs, "Files to encode at a time [the number of cores]")
        ->option_text("N")
        ->check(CLI::Range(unsigned{1}, max_jobs))
        ->group(group);
    app.set_version_flag(
           "--version", "tavik " + version_text(TAVIK_VERSION) + " (library " + version_text(TAVIK_get_version()) + ")",
           "Print the versions of program and library")
        ->group(group);
    app.set_help_flag("-h,--help", "Print this text")->group(group);
}

// Returns standard_stream if the path is one of the system's names for it, otherwise the path.
std::string standard_stream_name(const std::string &path, const char *name, const std::string &number) {
    const bool is_stream =
        path == std::string("/dev/") + name || path == "/dev/fd/" + number || path == "/proc/self/fd/" + number;
    return is_stream ? standard_stream : path;
}

// Reports an unknown argument first: often it is the reason why another one is missing.
ProgramError usage_error(const CLI::App &app, const CLI::ParseError &error) {
    for (const std::string &argument : app.remaining()) {
        if (argument != "--") return {ExitCode::usage, argument, "unknown option (see tavik --help)"};
    }
    const bool is_missing = error.get_name() == "RequiredError";
    return {ExitCode::usage, std::string(error.what()) + (is_missing ? " (see tavik --help)" : "")};
}

// Parses the arguments; false if the help or version text was requested, which has then been printed.
bool parse(CLI::App &app, int argc, const char *const *argv) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::Success &request) {
        app.exit(request, std::cout, std::cerr);
        if (!std::cout.flush()) throw ProgramError(ExitCode::output, "standard output", "cannot write");
        return false;
    } catch (const CLI::ParseError &error) {
        throw usage_error(app, error);
    }
}

// Checks that concern more than one option.
void check_combinations(const Options &options) {
    const auto standard_inputs = std::ranges::count(options.inputs, standard_stream);
    const bool to_standard_output = options.output == standard_stream;
    for (const auto &[key, value] : options.tags) {
        if (TagLib::String(key + value, TagLib::String::UTF8).isEmpty()) {
            throw ProgramError(ExitCode::usage, "--tag", "text is not UTF-8");
        }
    }
    if (standard_inputs > 1) throw ProgramError(ExitCode::usage, "INPUT", "standard input can be read only once");
    if (standard_inputs == 1 && !options.output) {
        throw ProgramError(ExitCode::usage, "--output", "is needed for standard input");
    }
    if (to_standard_output && options.verify) {
        throw ProgramError(ExitCode::usage, "--verify", "cannot read standard output back");
    }
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv) {
    Options options;
    ArgumentTexts texts;
    CLI::App app(description, "tavik");
    app.footer(footer);
    app.formatter(std::make_shared<HelpFormatter>());
    app.get_formatter()->column_width(help_column);
    app.option_defaults()->disable_flag_override();
    add_input_options(app, options, texts);
    add_output_options(app, options);
    add_format_options(app, options.format, options.start_edit);
    add_coding_options(app, options, texts);
    add_level_options(app, options, texts);
    add_tag_options(app, options, texts);
    add_report_options(app, options);
    add_general_options(app, options);
    if (!parse(app, argc, argv)) return std::nullopt;

    for (std::string &input : options.inputs) input = standard_stream_name(input, "stdin", "0");
    if (options.output) options.output = standard_stream_name(*options.output, "stdout", "1");
    options.bit_rate = to_bit_rate(texts.bit_rate);
    options.mode = find_channel_mode(texts.mode);
    if (!texts.pcm.empty()) options.pcm = to_pcm_format(texts.pcm);
    for (const std::string &tag : texts.tags) options.tags.push_back(to_tag(tag));
    if (!texts.loudness_gain.empty()) {
        options.loudness = true;
        options.loudness_gain = loudness_gain_names().at(texts.loudness_gain);
    }
    if (!texts.cover.empty()) options.cover = read_picture_file(texts.cover);
    check_combinations(options);
    return options;
}

}  // namespace tavik
