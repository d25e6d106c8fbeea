// Decides which tags are kept, and under which names.
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

// Fields that describe the source file, not the music.
constexpr std::array file_fields{
    "ENCODER",     "ENCODEDBY",        "ENCODED_BY",        "ENCODING",        "ENCODING_TOOL",  "ENCODERSETTINGS",
    "MAJOR_BRAND", "MINOR_VERSION",    "COMPATIBLE_BRANDS", "CREATION_TIME",   "HANDLER_NAME",   "VENDOR_ID",
    "DURATION",    "LENGTH",           "FILETYPE",          "ENCODINGTIME",    "TAGGINGDATE",    "ORIGINALFILENAME",
    "BPS",         "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES",   "ENCODER_OPTIONS", "ENCODEROPTIONS", "COMMENT:ITUNSMPB",
    "ITUNSMPB",    "ITUNPGAP",         "COMMENT:ITUNPGAP",  "CODING_HISTORY",  "TIME_REFERENCE"};
constexpr const char *file_field_start = "_STATISTICS";

// Atoms of MP4 files that describe the source file, and the one with the level of the song.
constexpr std::array file_atoms{"iTunSMPB", "Encoding Params", "cdec", "tool"};
constexpr const char *level_atom = "iTunNORM";

// Other common names of fields.
struct Alias {
    const char *alias;
    const char *name;
};
constexpr std::array aliases{Alias{"TRACK", "TRACKNUMBER"},        Alias{"DISC", "DISCNUMBER"},
                             Alias{"DISK", "DISCNUMBER"},          Alias{"YEAR", "DATE"},
                             Alias{"ALBUM_ARTIST", "ALBUMARTIST"}, Alias{"ALBUM ARTIST", "ALBUMARTIST"},
                             Alias{"UNSYNCEDLYRICS", "LYRICS"},    Alias{"TEMPO", "BPM"}};

String canonical_name(const String &name) {
    const auto *const found = std::ranges::find_if(aliases, [&](const Alias &entry) { return name == entry.alias; });
    return found != aliases.end() ? String(found->name) : name;
}

void use_canonical_names(PropertyMap &fields) {
    for (const Alias &entry : aliases) {
        if (!fields.contains(entry.alias) || fields.contains(entry.name)) continue;
        fields.insert(entry.name, fields[entry.alias]);
        fields.erase(entry.alias);
    }
}

void remove_file_tags(Tags &tags) {
    for (const char *field : file_fields) tags.fields.erase(field);
    std::vector<String> more;
    for (const auto &[name, values] : tags.fields) {
        if (name.startsWith(file_field_start)) more.push_back(name);
    }
    for (const String &name : more) tags.fields.erase(name);
    tags.atoms.erase("\251too");
    for (const char *atom : file_atoms) tags.atoms.erase(String("----:com.apple.iTunes:") + atom);
}

// Joins a track or disc number with the total, which some formats store separately, as in 3/12.
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

// Converts a gain of Opus, in 1/256 dB relative to -23 LUFS, to ReplayGain, which is relative to -18 LUFS.
void use_replay_gain(PropertyMap &fields, const char *r128_field, const char *field) {
    constexpr double lufs_difference = 5;
    const StringList r128 = fields[r128_field];
    fields.erase(r128_field);
    const auto value = r128.isEmpty() ? std::nullopt : number_in(r128.front());
    if (value && !fields.contains(field)) fields.insert(field, gain_text(*value / 256 + lufs_difference));
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

// Removes atoms that are replaced by a field from an option.
void erase_atoms(Tags &tags, const String &field) {
    std::vector<String> erased;
    for (const auto &[name, item] : tags.atoms) {
        const int colon = name.rfind(":");
        if (name.substr(static_cast<unsigned>(colon + 1)).upper() == field) erased.push_back(name);
    }
    for (const String &name : erased) tags.atoms.erase(name);
}

// If only the number of a track or disc is given, keeps the total from the old value.
void keep_total(StringList &number, const StringList &old) {
    const int slash = old.isEmpty() ? -1 : old.front().find("/");
    const bool is_alone = number.size() == 1 && number.front().find("/") < 0;
    if (is_alone && slash >= 0) number.front() += old.front().substr(static_cast<unsigned>(slash));
}

void set_by_options(Tags &tags, const Options &options) {
    PropertyMap given;
    for (const auto &[key, value] : options.tags) {
        const String name = canonical_name(String(key, String::UTF8));
        given[name];  // creates the entry even if the value is empty
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

std::mutex &taglib_mutex() {
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
    remove_file_tags(tags);
    use_canonical_names(tags.fields);
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
