// Which tags are kept, and under which names.
#include "tags.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>

#include "pictures.h"
#include "tag_reader.h"

namespace tavik {
namespace {

using TagLib::PropertyMap;
using TagLib::String;
using TagLib::StringList;

// Fields that tell about the source's file, not about the music.
constexpr std::array foreign_fields{
    "ENCODER",     "ENCODEDBY",        "ENCODED_BY",        "ENCODING",        "ENCODING_TOOL",  "ENCODERSETTINGS",
    "MAJOR_BRAND", "MINOR_VERSION",    "COMPATIBLE_BRANDS", "CREATION_TIME",   "HANDLER_NAME",   "VENDOR_ID",
    "DURATION",    "LENGTH",           "FILETYPE",          "ENCODINGTIME",    "TAGGINGDATE",    "ORIGINALFILENAME",
    "BPS",         "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES",   "ENCODER_OPTIONS", "ENCODEROPTIONS", "COMMENT:ITUNSMPB",
    "ITUNSMPB",    "ITUNPGAP",         "COMMENT:ITUNPGAP",  "CODING_HISTORY",  "TIME_REFERENCE"};
constexpr const char *foreign_start = "_STATISTICS";

// The same of the atoms of an MP4 file; the last is the level of the song.
constexpr std::array foreign_atoms{"iTunSMPB", "Encoding Params", "cdec", "tool"};
constexpr const char *level_atom = "iTunNORM";

// Other usual names of fields.
struct OtherName {
    const char *other;
    const char *name;
};
constexpr std::array other_names{OtherName{"TRACK", "TRACKNUMBER"},        OtherName{"DISC", "DISCNUMBER"},
                                 OtherName{"DISK", "DISCNUMBER"},          OtherName{"YEAR", "DATE"},
                                 OtherName{"ALBUM_ARTIST", "ALBUMARTIST"}, OtherName{"ALBUM ARTIST", "ALBUMARTIST"},
                                 OtherName{"UNSYNCEDLYRICS", "LYRICS"},    OtherName{"TEMPO", "BPM"}};

String usual_name(const String &name) {
    const auto *const found =
        std::ranges::find_if(other_names, [&](const OtherName &entry) { return name == entry.other; });
    return found != other_names.end() ? String(found->name) : name;
}

void use_usual_names(PropertyMap &fields) {
    for (const OtherName &entry : other_names) {
        if (!fields.contains(entry.other) || fields.contains(entry.name)) continue;
        fields.insert(entry.name, fields[entry.other]);
        fields.erase(entry.other);
    }
}

void remove_foreign(Tags &tags) {
    for (const char *field : foreign_fields) tags.fields.erase(field);
    std::vector<String> more;
    for (const auto &[name, values] : tags.fields) {
        if (name.startsWith(foreign_start)) more.push_back(name);
    }
    for (const String &name : more) tags.fields.erase(name);
    tags.atoms.erase("\251too");
    for (const char *atom : foreign_atoms) tags.atoms.erase(String("----:com.apple.iTunes:") + atom);
}

// The number of tracks or discs, which some formats keep apart, behind a slash.
void join_total(PropertyMap &fields, const char *field, std::initializer_list<const char *> total_fields) {
    for (const char *total_field : total_fields) {
        const StringList total = fields[total_field];
        fields.erase(total_field);
        StringList &number = fields[field];
        if (total.isEmpty()) continue;
        if (number.isEmpty()) number.append("0");
        if (number.front().find("/") < 0) number = StringList(number.front() + "/" + total.front());
    }
    fields.removeEmpty();
}

// The number at the start of a text such as "-6.5 dB".
std::optional<double> number_in(const String &text) {
    const std::string plain = text.stripWhiteSpace().to8Bit();
    const char *start = plain.data() + (plain.starts_with('+') ? 1 : 0);
    double value = 0;
    const auto [rest, error] = std::from_chars(start, plain.data() + plain.size(), value);
    return error == std::errc{} && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

String gain_text(double gain) { return fmt::format("{:+.2f} dB", gain); }

String peak_text(double peak) { return fmt::format("{:.6f}", peak); }

// Opus has gains in 256ths of a decibel that lead to -23 LUFS, ReplayGain those to -18 LUFS.
void use_replay_gain(PropertyMap &fields, const char *r128_field, const char *field) {
    constexpr double lufs_between = 5;
    const StringList r128 = fields[r128_field];
    fields.erase(r128_field);
    const auto value = r128.isEmpty() ? std::nullopt : number_in(r128.front());
    if (value && !fields.contains(field)) fields.insert(field, gain_text(*value / 256 + lufs_between));
}

void correct_replay_gain(Tags &tags, double gain) {
    if (gain == 0) return;
    for (const char *field : {"REPLAYGAIN_TRACK_GAIN", "REPLAYGAIN_ALBUM_GAIN"}) {
        const auto value = tags.fields.contains(field) ? number_in(tags.fields[field].front()) : std::nullopt;
        if (value) tags.fields.replace(field, gain_text(*value - gain));
    }
    for (const char *field : {"REPLAYGAIN_TRACK_PEAK", "REPLAYGAIN_ALBUM_PEAK"}) {
        const auto value = tags.fields.contains(field) ? number_in(tags.fields[field].front()) : std::nullopt;
        if (value) tags.fields.replace(field, peak_text(*value * to_factor(gain)));
    }
    const String level = String("----:com.apple.iTunes:") + level_atom;
    if (tags.atoms.contains(level)) tags.note_not_kept(level_atom);
    tags.atoms.erase(level);
}

// An atom goes where the option names its field.
void erase_atoms(Tags &tags, const String &field) {
    std::vector<String> erased;
    for (const auto &[name, item] : tags.atoms) {
        const int colon = name.rfind(":");
        if (name.substr(static_cast<unsigned>(colon + 1)).upper() == field) erased.push_back(name);
    }
    for (const String &name : erased) tags.atoms.erase(name);
}

// A number of a track or disc alone does not change how many there are.
void keep_total(StringList &number, const StringList &old) {
    const int slash = old.isEmpty() ? -1 : old.front().find("/");
    const bool is_alone = number.size() == 1 && number.front().find("/") < 0;
    if (is_alone && slash >= 0) number.front() += old.front().substr(static_cast<unsigned>(slash));
}

void set_by_options(Tags &tags, const Options &options) {
    PropertyMap given;
    for (const auto &[key, value] : options.tags) {
        const String name = usual_name(String(key, String::UTF8));
        given[name];  // also without a value
        if (!value.empty()) given[name].append(String(value, String::UTF8));
    }
    for (auto &[name, values] : given) {
        if (name == "TRACKNUMBER" || name == "DISCNUMBER") keep_total(values, tags.fields[name]);
        tags.fields.replace(name, values);
        erase_atoms(tags, name);
    }
    tags.fields.removeEmpty();
}

}  // namespace

void Tags::note_not_kept(const std::string &name) {
    if (std::ranges::find(not_kept, name) == not_kept.end()) not_kept.push_back(name);
}

std::mutex &taglib_names() {
    static std::mutex mutex;
    return mutex;
}

Tags read_tags(const AudioDecoder &source, const Options &options, double gain) {
    Tags tags;
    try {
        read_source_tags(source, tags);
    } catch (const std::exception &) {
        tags.note_not_kept("tags");
    }
    if (options.no_tags) {
        Tags none;
        none.source_pictures = std::move(tags.source_pictures);
        tags = std::move(none);
    }
    remove_foreign(tags);
    use_usual_names(tags.fields);
    use_replay_gain(tags.fields, "R128_TRACK_GAIN", "REPLAYGAIN_TRACK_GAIN");
    use_replay_gain(tags.fields, "R128_ALBUM_GAIN", "REPLAYGAIN_ALBUM_GAIN");
    correct_replay_gain(tags, gain);
    set_by_options(tags, options);
    join_total(tags.fields, "TRACKNUMBER", {"TRACKTOTAL", "TOTALTRACKS"});
    join_total(tags.fields, "DISCNUMBER", {"DISCTOTAL", "TOTALDISCS"});
    if (!options.no_cover) {
        read_pictures(source.container(), options.cover ? FrontCover::leave_out : FrontCover::keep, tags);
    }
    if (options.cover) tags.pictures.prepend(*options.cover);
    return tags;
}

void set_replay_gain(Tags &tags, const Loudness &measured) {
    const auto set = [&tags](const char *whose, const std::optional<ReplayGain> &values) {
        if (!values) return;
        tags.fields.replace(String("REPLAYGAIN_") + whose + "_GAIN", gain_text(values->gain));
        tags.fields.replace(String("REPLAYGAIN_") + whose + "_PEAK", peak_text(values->peak));
    };
    set("TRACK", measured.track);
    set("ALBUM", measured.album);
}

std::vector<std::string> names_of(const Tags &tags) {
    std::vector<std::string> names;
    for (const auto &[name, values] : tags.fields) names.push_back(name.to8Bit(true));
    for (const auto &[name, item] : tags.atoms) names.push_back(name.to8Bit(true));
    if (!tags.pictures.isEmpty()) names.emplace_back("pictures");
    names.insert(names.end(), tags.not_kept.begin(), tags.not_kept.end());
    return names;
}

}  // namespace tavik
