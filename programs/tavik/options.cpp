// The command line is described to CLI11, which parses and checks it and writes the help text.
#include "options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <iostream>
#include <map>
#include <vector>

#include "program_error.h"

namespace tavik {
namespace {

constexpr const char *description =
    "Encodes the best audio stream of a file as MPEG AAC Low Complexity.\n"
    "Whatever FFmpeg's libraries can read is resampled and mixed as necessary.";

constexpr const char *footer =
    "Examples:\n"
    "  tavik song.wav -o song.aac                      stereo ADTS stream, 128 kbit/s\n"
    "  tavik film.mkv -o film.aac -b 192k --rate 48000\n"
    "  tavik talk.flac -o talk.aac --mode mono -b 32k --cbr\n"
    "  tavik languages.wav -o languages.adif --mode two-mono --adif\n"
    "\n"
    "Exit status:\n"
    "  0 success, 1 internal error, 2 wrong usage, 3 unusable input, 4 output not written,\n"
    "  129/130/143 interrupted by SIGHUP/SIGINT/SIGTERM\n"
    "The output file appears under its name only when it is complete.";

std::map<std::string, ChannelMode> mode_names() {
    return {{"mono", ChannelMode::mono}, {"stereo", ChannelMode::stereo}, {"two-mono", ChannelMode::two_mono}};
}

// Arguments whose text needs a translation that is made once the whole command line is accepted.
struct ArgumentTexts {
    std::string bit_rate;
    std::string mode;
    std::string copyright_id;
};

// Bit/s of a text such as 128000 or 128k.
std::optional<uint64_t> to_bit_rate(const std::string &text) {
    const char *end = text.data() + text.size();
    uint32_t value = 0;
    const auto [unit, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{}) return std::nullopt;
    if (unit == end) return value;
    const bool is_thousands = unit + 1 == end && (*unit == 'k' || *unit == 'K');
    return is_thousands ? std::optional(value * uint64_t{1000}) : std::nullopt;
}

std::vector<std::string> supported_rate_texts() {
    std::vector<std::string> texts;
    texts.reserve(std::size(supported_rates));
    for (const uint32_t rate : supported_rates) texts.push_back(std::to_string(rate));
    return texts;
}

std::string version_text(uint32_t version) {
    return std::to_string(version >> 28) + "." + std::to_string(version >> 16 & 0xFFF) + "." +
           std::to_string(version & 0xFFFF);
}

// Validators of CLI11's kind: an empty string accepts the text.

std::string check_file_name(const std::string &text) { return text.empty() ? "empty file name" : ""; }

std::string check_bit_rate(const std::string &text) {
    return to_bit_rate(text) ? "" : text + " is not a bit rate such as 128000 or 128k";
}

std::string check_copyright_id(const std::string &text) {
    const bool is_hex = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return is_hex && text.size() == 18 ? "" : text + " is not a number of 18 hexadecimal digits";
}

std::array<uint8_t, 9> to_copyright_id(const std::string &digits) {
    std::array<uint8_t, 9> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char *first = digits.data() + 2 * i;
        std::from_chars(first, first + 2, bytes[i], 16);
    }
    return bytes;
}

void add_file_options(CLI::App &app, Options &options) {
    app.add_option("INPUT", options.input, "File with audio")->option_text(" ")->required()->check(check_file_name);
    app.add_option("-o,--output", options.output, "File to write; an existing one is replaced")
        ->option_text("FILE REQUIRED")
        ->required()
        ->check(check_file_name)
        ->group("Files");
}

void add_coding_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Coding";
    app.add_option("-b,--bitrate", texts.bit_rate,
                   "Bit/s of all channels together [64k per channel, less below 44100 Hz]")
        ->option_text("RATE[k]")
        ->check(check_bit_rate)
        ->group(group);
    app.add_option("--rate", options.rate, "Sampling rate of the output in Hz [the input's, or the next supported one]")
        ->option_text("HZ")
        ->check(CLI::IsMember(supported_rate_texts()))
        ->group(group);
    app.add_option("--mode", texts.mode,
                   "mono, stereo or two-mono (independent channels) [mono or stereo as the input]")
        ->option_text("MODE")
        ->check(CLI::IsMember(mode_names()))
        ->group(group);
    app.add_flag("--cbr", options.constant_rate, "Constant instead of variable frame size")->group(group);
    app.add_flag("--priming", options.priming, "Also emit the frame that leads in from silence")->group(group);
    app.add_flag("--no-tns", options.no_tns, "Never apply temporal noise shaping")->group(group);
}

// Adds the flags that choose the framing and lets `framing` be set by whichever is given.
void add_framing_options(CLI::App &app, Framing &framing) {
    const auto add = [&app, &framing](const char *flag, Framing value, const char *text) {
        const auto select = [&framing, value] { framing = value; };
        return app.add_flag_callback(flag, select, text)->option_text(" ")->group("Framing (only one)");
    };
    CLI::Option *adts = add("--adts", Framing::adts, "A header in front of every frame [default]");
    CLI::Option *adif = add("--adif", Framing::adif, "One header in front of the stream");
    CLI::Option *raw = add("--raw-frames", Framing::raw_frames, "No headers, the frames alone");
    adts->excludes(adif, raw);
    adif->excludes(raw);
}

void add_header_options(CLI::App &app, Options &options, ArgumentTexts &texts) {
    const std::string group = "Header contents (ADTS and ADIF)";
    app.add_flag("--home", options.home, "Set the home bit")->group(group);
    app.add_flag("--original", options.original, "Set the original_copy bit")->group(group);
    app.add_option("--copyright-id", texts.copyright_id, "72-bit copyright identifier, 18 hexadecimal digits")
        ->option_text("HEX18")
        ->check(check_copyright_id)
        ->group(group);
}

void add_general_options(CLI::App &app, Options &options) {
    const std::string group = "General";
    app.add_flag("--quiet", options.quiet, "Print warnings and errors only")->group(group);
    app.set_version_flag(
           "--version", "tavik " + version_text(TAVIK_VERSION) + " (library " + version_text(TAVIK_get_version()) + ")",
           "Print the versions of program and library")
        ->group(group);
    app.set_help_flag("-h,--help", "Print this text")->group(group);
}

// An unknown argument goes first: often it is the reason why another one is missing.
ProgramError usage_error(const CLI::App &app, const CLI::ParseError &error) {
    for (const std::string &argument : app.remaining()) {
        if (argument != "--") return {ExitCode::usage, argument, "unknown option or surplus argument"};
    }
    return {ExitCode::usage, error.what()};
}

// Parses; false when the help or version text was asked for and printed.
bool parse(CLI::App &app, int argc, const char *const *argv) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::Success &request) {
        app.exit(request, std::cout, std::cerr);
        return false;
    } catch (const CLI::ParseError &error) {
        throw usage_error(app, error);
    }
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv) {
    Options options;
    ArgumentTexts texts;
    CLI::App app(description, "tavik");
    app.footer(footer);
    app.option_defaults()->disable_flag_override();
    add_file_options(app, options);
    add_coding_options(app, options, texts);
    add_framing_options(app, options.framing);
    add_header_options(app, options, texts);
    add_general_options(app, options);
    if (!parse(app, argc, argv)) return std::nullopt;

    options.bit_rate = to_bit_rate(texts.bit_rate);
    if (!texts.mode.empty()) options.mode = mode_names().at(texts.mode);
    if (!texts.copyright_id.empty()) options.copyright_id = to_copyright_id(texts.copyright_id);
    return options;
}

}  // namespace tavik
