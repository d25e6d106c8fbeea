// The command line is described to CLI11, which parses and checks it and writes the help text.
#include "options.h"

#include <CLI/CLI.hpp>
#include <cctype>
#include <charconv>
#include <iostream>
#include <map>

#include "file_names.h"
#include "program_error.h"
#include "stream_encoder.h"

namespace tavik {
namespace {

constexpr const char *description =
    "Encodes audio as MPEG AAC Low Complexity. Whatever FFmpeg's libraries can read is resampled and mixed as "
    "necessary.";

constexpr const char *footer =
    "Examples:\n"
    "  tavik song.flac                            song.m4a beside it, 128 kbit/s for stereo\n"
    "  tavik film.mkv -o film.aac -b 192k         an ADTS stream of its best audio track\n"
    "  tavik talk.wav --mode mono -b 40k --cbr    mono, constant rate\n"
    "  tavik music/ -o encoded/ --skip-existing   a folder of music, on all cores\n"
    "  arecord -q -f cd | tavik - -o - --adts | nc host 9000\n"
    "                                             live: each frame as soon as it is coded\n"
    "\n"
    "Exit status:\n"
    "  0 all done, 1 some of several files failed, 2 wrong usage, 3 unusable input, 4 output not written,\n"
    "  129/130/143 interrupted by SIGHUP/SIGINT/SIGTERM, 70 internal error\n"
    "An output appears under its name only when it is complete.";

constexpr unsigned most_jobs = 256;
constexpr unsigned most_tracks = 1000;
constexpr double most_gain = 60;  // dB

std::map<std::string, ChannelMode> mode_names() {
    return {{"mono", ChannelMode::mono}, {"stereo", ChannelMode::stereo}, {"two-mono", ChannelMode::two_mono}};
}

std::map<std::string, LoudnessGain> loudness_gain_names() {
    return {{"track", LoudnessGain::track}, {"album", LoudnessGain::album}};
}

// Arguments whose text needs a translation that is made once the whole command line is accepted.
struct ArgumentTexts {
    std::string bit_rate;
    std::string mode;
    std::string pcm;
    std::string loudness_gain;
    std::vector<std::string> tags;
};

std::optional<uint32_t> to_number(std::string_view text) {
    uint32_t value = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || rest != text.data() + text.size()) return std::nullopt;
    return value;
}

// Bit/s of a text such as 128000 or 128k.
std::optional<uint64_t> to_bit_rate(std::string_view text) {
    const bool is_thousands = text.ends_with('k') || text.ends_with('K');
    if (is_thousands) text.remove_suffix(1);
    const std::optional<uint32_t> value = to_number(text);
    if (!value) return std::nullopt;
    return is_thousands ? *value * uint64_t{1000} : *value;
}

// Parts of FORMAT[:RATE[:CHANNELS]].
std::optional<PcmFormat> to_pcm_format(const std::string &text) {
    static const std::set<std::string> sample_formats{"u8",    "s16le", "s16be", "s24le", "s24be",
                                                      "s32le", "s32be", "f32le", "f32be"};
    const std::vector<std::string> parts = CLI::detail::split(text, ':');
    if (parts.empty() || parts.size() > 3 || !sample_formats.contains(parts[0])) return std::nullopt;
    PcmFormat format{.sample_format = parts[0]};
    if (parts.size() > 1) format.rate = to_number(parts[1]).value_or(0);
    if (parts.size() > 2) format.channels = to_number(parts[2]).value_or(0);
    return is_possible(format.rate, format.channels) ? std::optional(format) : std::nullopt;
}

// Name and value of KEY=VALUE.
std::pair<std::string, std::string> to_tag(const std::string &text) {
    const size_t sign = text.find('=');
    std::string key = text.substr(0, sign);
    std::ranges::transform(key, key.begin(), [](unsigned char c) { return std::toupper(c); });
    return {key, text.substr(sign + 1)};
}

std::vector<std::string> supported_rate_texts() {
    std::vector<std::string> texts;
    texts.reserve(std::size(supported_rates));
    for (const uint32_t rate : supported_rates) texts.push_back(std::to_string(rate));
    return texts;
}

// Validators of CLI11's kind: an empty string accepts the text.

std::string check_file_name(const std::string &text) { return text.empty() ? "empty file name" : ""; }

std::string check_bit_rate(const std::string &text) {
    return to_bit_rate(text) ? "" : text + " is not a bit rate such as 128000 or 128k";
}

std::string check_pcm(const std::string &text) {
    if (to_pcm_format(text)) return "";
    return text + " is not a format such as s16le:44100:2 (u8 or s16, s24, s32, f32 with le or be)";
}

std::string check_tag(const std::string &text) {
    const size_t sign = text.find('=');
    return sign != std::string::npos && sign > 0 ? "" : text + " is not a tag such as MOOD=calm";
}

void add_input_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Input";
    app.add_option("INPUT", options.inputs, "Files; directories for all audio files below them; - for standard input")
        ->option_text("...")
        ->required()
        ->check(check_file_name);
    app.add_option("--pcm", texts.pcm,
                   "Inputs are samples without a header, such as s16le:48000:2 [rate 44100, stereo]")
        ->type_name("FORMAT[:RATE[:CHANNELS]]")
        ->check(check_pcm)
        ->group(group);
    auto *track = app.add_option("--track", options.track, "Audio track of the input, counted from 1 [the best]");
    track->type_name("N")->check(CLI::Range(1U, most_tracks))->group(group);
    app.add_option("--language", options.language, "Audio track of this language, such as eng")
        ->type_name("LANG")
        ->excludes(track)
        ->group(group);
}

void add_output_options(CLI::App &app, Options &options) {
    const std::string group = "Output";
    app.add_option("-o,--output", options.output,
                   "File, or directory for several; - is standard output [beside each input]")
        ->type_name("PATH")
        ->check(check_file_name)
        ->group(group);
    auto *force = app.add_flag("-f,--force", options.replace, "Replace outputs that exist");
    force->option_text(" ")->group(group);
    auto *skip = app.add_flag("--skip-existing", options.skip_existing, "Leave out inputs whose output exists");
    skip->excludes(force)->option_text(" ")->group(group);
    app.add_flag("--update", options.update, "Leave out inputs whose output is newer, replace older outputs")
        ->excludes(force, skip)
        ->option_text(" ")
        ->group(group);
    app.add_flag("--strict", options.strict, "Damaged or truncated input is an error: no output is kept")->group(group);
    auto *verify = app.add_flag("--verify", options.verify, "Decode what was written, compare length and structure");
    verify->group(group);
    app.add_flag("--live", options.live, "Endless input: frames leave at once, an interrupt ends it well")
        ->option_text(" ")
        ->excludes(verify)
        ->group(group);
}

// Adds the flags that choose the format and lets `format` be set by whichever is given.
void add_format_options(CLI::App &app, std::optional<Format> &format, bool &start_edit) {
    const std::string group = "Format (only one) [as the name of the output says, else M4A]";
    const auto add = [&app, &format, &group](const char *flag, Format value, const char *text) {
        const auto select = [&format, value] { format = value; };
        return app.add_flag_callback(flag, select, text)->option_text(" ")->group(group);
    };
    CLI::Option *m4a = add("--m4a", Format::m4a, "MP4 file (.m4a): plays sample-exact, carries tags and cover");
    CLI::Option *adts = add("--adts", Format::adts, "ADTS stream (.aac): a header in front of every frame");
    CLI::Option *adif = add("--adif", Format::adif, "ADIF stream (.adif): one header in front of the stream");
    CLI::Option *raw = add("--raw-frames", Format::raw_frames, "No headers, the frames alone (.raw)");
    m4a->excludes(adts, adif, raw);
    adts->excludes(adif, raw);
    adif->excludes(raw);
    app.add_flag("--start-edit", start_edit, "In MP4, begin a late start with an edit instead of silence")
        ->option_text(" ")
        ->excludes(adts, adif, raw)
        ->group(group);
}

void add_level_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Level";
    app.add_option("--gain", options.gain, "Make it louder, or softer by a negative number")
        ->type_name("DB")
        ->option_text("DB")
        ->check(CLI::Range(-most_gain, most_gain))
        ->group(group);
    app.add_flag("--loudness", options.loudness, "Measure by EBU R128 and write ReplayGain tags")->group(group);
    app.add_option("--apply-loudness", texts.loudness_gain, "Measure, and apply the ReplayGain of track or album")
        ->type_name("track|album")
        ->option_text("track|album")
        ->check(CLI::IsMember(loudness_gain_names()))
        ->group(group);
}

void add_tag_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Tags and cover (M4A)";
    const auto add = [&app](const std::string &name, auto &variable, const char *type, const char *text) {
        return app.add_option(name, variable, text)->type_name(type)->allow_extra_args(false)->group("");
    };
    auto *tag = add("--tag", texts.tags, "KEY=VALUE", "Set a tag; without a value: leave it out; may be repeated");
    tag->check(check_tag)->group(group);
    for (const char *key : {"title", "artist", "album", "album-artist", "composer", "genre", "date", "comment"}) {
        const std::string name = std::string("--") + key;
        std::string plain = key;
        std::erase(plain, '-');
        const auto set = [&options, plain](const std::string &value) {
            options.tags.push_back(to_tag(plain + "=" + value));
        };
        app.add_option_function<std::string>(name, set, "The same for the usual ones")->type_name("TEXT")->group(group);
    }
    auto *cover = add("--cover", options.cover, "FILE", "The front cover");
    cover->check(check_file_name)->group(group);
    app.add_flag("--no-tags", options.no_tags, "Leave out the tags of the input")->group(group);
    app.add_flag("--no-cover", options.no_cover, "Leave out its pictures")->group(group);
}

void add_coding_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Coding";
    app.add_option("-b,--bitrate", texts.bit_rate,
                   "Bit/s of all channels together [64k per channel, less below 44100 Hz]")
        ->type_name("RATE[k]")
        ->check(check_bit_rate)
        ->group(group);
    app.add_flag("--cbr", options.constant_rate, "Constant rate: all frames of the same size [variable]")->group(group);
    app.add_option("--rate", options.rate, "Sampling rate of the output in Hz [the input's, or the next supported one]")
        ->type_name("HZ")
        ->option_text("HZ")
        ->check(CLI::IsMember(supported_rate_texts()))
        ->group(group);
    app.add_option("--mode", texts.mode,
                   "mono, stereo or two-mono (independent channels) [mono or stereo as the input]")
        ->type_name("MODE")
        ->option_text("MODE")
        ->check(CLI::IsMember(mode_names()))
        ->group(group);
    app.add_flag("--no-tns", options.no_tns, "Never apply temporal noise shaping")->group(group);
    app.add_flag("--priming", options.priming,
                 "Begin a stream with the priming frame: 1024 samples later, the first ones exact [MP4 only]")
        ->group(group);
}

void add_report_options(CLI::App &app, Options &options) {
    const std::string group = "Reports";
    auto *quiet = app.add_flag("-q,--quiet", options.quiet, "Print warnings and errors only")->group(group);
    app.add_flag("-v,--verbose", options.verbose, "Print more about each file")->excludes(quiet)->group(group);
    app.add_flag("--no-progress", options.no_progress, "No progress bar (on terminals only anyway) or progress objects")
        ->group(group);
    app.add_flag("--json", options.json, "Print JSON objects, one per line: progress, each file, the summary")
        ->group(group);
}

void add_general_options(CLI::App &app, Options &options) {
    const std::string group = "General";
    app.add_option("-j,--jobs", options.jobs, "Files that are encoded at once [as many as there are cores]")
        ->type_name("N")
        ->check(CLI::Range(unsigned{1}, most_jobs))
        ->group(group);
    app.set_version_flag(
           "--version", "tavik " + version_text(TAVIK_VERSION) + " (library " + version_text(TAVIK_get_version()) + ")",
           "Print the versions of program and library")
        ->group(group);
    app.set_help_flag("-h,--help", "Print this text")->group(group);
}

// Replaces the names that the system has for a standard stream.
std::string plain_name(const std::string &path, const char *name, const std::string &number) {
    const bool is_stream =
        path == std::string("/dev/") + name || path == "/dev/fd/" + number || path == "/proc/self/fd/" + number;
    return is_stream ? standard_stream : path;
}

// An unknown argument goes first: often it is the reason why another one is missing.
ProgramError usage_error(const CLI::App &app, const CLI::ParseError &error) {
    for (const std::string &argument : app.remaining()) {
        if (argument != "--") return {ExitCode::usage, argument, "unknown option"};
    }
    return {ExitCode::usage, std::string(error.what()) + " (tavik --help tells more)"};
}

// Parses; false when the help or version text was asked for and printed.
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

// What no single option can tell.
void check_together(const Options &options) {
    const auto standard_inputs = std::ranges::count(options.inputs, standard_stream);
    const bool to_standard_output = options.output == standard_stream;
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

    for (std::string &input : options.inputs) input = plain_name(input, "stdin", "0");
    if (options.output) options.output = plain_name(*options.output, "stdout", "1");
    options.bit_rate = to_bit_rate(texts.bit_rate);
    if (!texts.mode.empty()) options.mode = mode_names().at(texts.mode);
    if (!texts.pcm.empty()) options.pcm = to_pcm_format(texts.pcm);
    for (const std::string &tag : texts.tags) options.tags.push_back(to_tag(tag));
    if (!texts.loudness_gain.empty()) {
        options.loudness = true;
        options.loudness_gain = loudness_gain_names().at(texts.loudness_gain);
    }
    check_together(options);
    return options;
}

}  // namespace tavik
