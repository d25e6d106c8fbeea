// The command line is described to CLI11, which parses and checks it and writes the help text.
#include "options.h"

#include <CLI/CLI.hpp>
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

std::map<std::string, ChannelMode> mode_names() {
    return {{"mono", ChannelMode::mono}, {"stereo", ChannelMode::stereo}, {"two-mono", ChannelMode::two_mono}};
}

// Arguments whose text needs a translation that is made once the whole command line is accepted.
struct ArgumentTexts {
    std::string bit_rate;
    std::string mode;
    std::string pcm;
    std::string copyright_id;
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

std::array<uint8_t, 9> to_copyright_id(const std::string &digits) {
    std::array<uint8_t, 9> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char *first = digits.data() + 2 * i;
        std::from_chars(first, first + 2, bytes[i], 16);
    }
    return bytes;
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

std::string check_copyright_id(const std::string &text) {
    const bool is_hex = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return is_hex && text.size() == 18 ? "" : text + " is not a number of 18 hexadecimal digits";
}

void add_input_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    app.add_option("INPUT", options.inputs, "Files; directories for all audio files below them; - for standard input")
        ->option_text("...")
        ->required()
        ->check(check_file_name);
    app.add_option("--pcm", texts.pcm,
                   "Inputs are samples without a header, such as s16le:48000:2 [rate 44100, stereo]")
        ->type_name("FORMAT[:RATE[:CHANNELS]]")
        ->check(check_pcm)
        ->group("Input");
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
    app.add_flag("--skip-existing", options.skip_existing, "Leave out inputs whose output exists")
        ->excludes(force)
        ->option_text(" ")
        ->group(group);
    app.add_flag("--strict", options.strict, "Damaged or truncated input is an error: no output is kept")->group(group);
    app.add_flag("--verify", options.verify, "Decode what was written, compare length and structure")->group(group);
}

// Adds the flags that choose the format and lets `format` be set by whichever is given.
void add_format_options(CLI::App &app, std::optional<Format> &format) {
    const auto add = [&app, &format](const char *flag, Format value, const char *text) {
        const auto select = [&format, value] { format = value; };
        return app.add_flag_callback(flag, select, text)
            ->option_text(" ")
            ->group("Format (only one) [as the name of the output says, else M4A]");
    };
    CLI::Option *m4a = add("--m4a", Format::m4a, "MP4 file (.m4a): plays sample-exact, carries tags and cover");
    CLI::Option *adts = add("--adts", Format::adts, "ADTS stream (.aac): a header in front of every frame");
    CLI::Option *adif = add("--adif", Format::adif, "ADIF stream (.adif): one header in front of the stream");
    CLI::Option *raw = add("--raw-frames", Format::raw_frames, "No headers, the frames alone (.raw)");
    m4a->excludes(adts, adif, raw);
    adts->excludes(adif, raw);
    adif->excludes(raw);
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

void add_header_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Header contents (ADTS and ADIF)";
    app.add_flag("--home", options.home, "Set the home bit")->group(group);
    app.add_flag("--original", options.original, "Set the original_copy bit")->group(group);
    app.add_option("--copyright-id", texts.copyright_id, "72-bit copyright identifier, 18 hexadecimal digits")
        ->type_name("HEX18")
        ->check(check_copyright_id)
        ->group(group);
}

void add_report_options(CLI::App &app, Options &options) {
    const std::string group = "Reports";
    app.add_flag("-q,--quiet", options.quiet, "Print warnings and errors only")->group(group);
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
    add_format_options(app, options.format);
    add_coding_options(app, options, texts);
    add_header_options(app, options, texts);
    add_report_options(app, options);
    add_general_options(app, options);
    if (!parse(app, argc, argv)) return std::nullopt;

    for (std::string &input : options.inputs) input = plain_name(input, "stdin", "0");
    if (options.output) options.output = plain_name(*options.output, "stdout", "1");
    options.bit_rate = to_bit_rate(texts.bit_rate);
    if (!texts.mode.empty()) options.mode = mode_names().at(texts.mode);
    if (!texts.pcm.empty()) options.pcm = to_pcm_format(texts.pcm);
    if (!texts.copyright_id.empty()) options.copyright_id = to_copyright_id(texts.copyright_id);
    check_together(options);
    return options;
}

}  // namespace tavik
