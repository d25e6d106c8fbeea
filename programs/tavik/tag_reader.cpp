// TagLib has a class for each file format. A format may have several kinds of tags, and a file may contain more than
// one of them.
#include "tag_reader.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apetag.h>
#include <taglib/asffile.h>
#include <taglib/asftag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mp4tag.h>
#include <taglib/mpcfile.h>
#include <taglib/mpegfile.h>
#include <taglib/oggflacfile.h>
#include <taglib/opusfile.h>
#include <taglib/popularimeterframe.h>
#include <taglib/speexfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/trueaudiofile.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <string_view>

#include "file_names.h"

namespace tavik {
namespace {

using TagLib::PropertyMap;
using TagLib::String;
using TagLib::StringList;

void add_missing(Tags &tags, const PropertyMap &fields) {
    for (const auto &[name, values] : fields) {
        if (!tags.fields.contains(name)) tags.fields.insert(name, values);
    }
}

// Records what TagLib cannot represent as a field. It names such an ID3v2 frame by its identifier and, after a slash,
// its description. Pictures, chapters and ratings are handled elsewhere.
void note_unsupported(Tags &tags, const StringList &names) {
    for (const String &name : names) {
        std::string text = name.to8Bit(true);
        if (text.starts_with("UNKNOWN/")) text.erase(0, text.find('/') + 1);
        text.resize(std::min(text.find('/'), text.size()));
        const bool is_kept = text == "APIC" || text == "PIC" || text == "CHAP" || text == "CTOC" || text == "POPM" ||
                             text.starts_with("COVER ART");
        if (!is_kept) tags.note_not_kept(text);
    }
}

// Converts an ID3v2 rating to per cent: 1, 64, 128, 196 and 255 are one to five stars.
unsigned rating_percent(int rating) {
    constexpr std::array stars{0, 1, 64, 128, 196, 255};
    const auto *const above = std::ranges::lower_bound(stars, rating);
    if (above == stars.begin()) return 0;
    const auto number = static_cast<int>(above - stars.begin());
    return static_cast<unsigned>(20 * number -
                                 20 * (*above - rating) / (*above - stars.at(static_cast<size_t>(number - 1))));
}

void read_rating(const TagLib::ID3v2::Tag &tag, Tags &tags) {
    for (const TagLib::ID3v2::Frame *frame : tag.frameList("POPM")) {
        const auto *popularity = dynamic_cast<const TagLib::ID3v2::PopularimeterFrame *>(frame);
        if (popularity == nullptr) continue;
        if (popularity->counter() > 0 && !tags.fields.contains("PLAYCOUNT")) {
            tags.fields.insert("PLAYCOUNT", String(std::to_string(popularity->counter())));
        }
        if (popularity->rating() == 0 || tags.fields.contains("RATING")) continue;  // 0: not rated
        const std::string rating = std::to_string(rating_percent(popularity->rating()));
        tags.fields.insert("RATING", String(rating));
        tags.changes.push_back("POPM to RATING " + rating + " %");
    }
}

// Reads pairs of a role and a name. TagLib recognises roles in capitals only.
void read_people(const StringList &pairs, Tags &tags) {
    for (unsigned i = 0; i + 1 < pairs.size(); i += 2) {
        const String role = pairs[i].upper();
        const String field = role == "DJ-MIX" ? String("DJMIXER") : role == "MIX" ? String("MIXER") : role;
        tags.fields[field].append(pairs[i + 1]);
    }
}

// Reads a text frame that TagLib does not map to a field; its identifier becomes the name of the field. False if it is
// not a text frame.
bool read_unknown_text(const TagLib::ID3v2::Tag &tag, const String &name, Tags &tags) {
    const TagLib::ByteVector id = name.data(String::Latin1);
    const TagLib::ID3v2::FrameList &frames = tag.frameList(id);
    const auto *text =
        frames.isEmpty() ? nullptr : dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame *>(frames.front());
    if (text == nullptr) return false;
    if (id == "TIPL" || id == "TMCL") {
        read_people(text->fieldList(), tags);
        return true;
    }
    const String field = id == "TSST" ? String("DISCSUBTITLE") : name;
    if (!tags.fields.contains(field)) tags.fields.insert(field, text->fieldList());
    return true;
}

void read(TagLib::ID3v2::Tag *tag, Tags &tags) {
    if (tag == nullptr) return;
    const PropertyMap fields = tag->properties();
    add_missing(tags, fields);
    StringList unsupported;
    for (const String &name : fields.unsupportedData()) {
        if (!read_unknown_text(*tag, name, tags)) unsupported.append(name);
    }
    note_unsupported(tags, unsupported);
    read_rating(*tag, tags);
    for (const TagLib::ID3v2::Frame *frame : tag->frameList("APIC")) {
        const auto *picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame *>(frame);
        if (picture == nullptr) continue;
        const bool is_front = picture->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover;
        tags.source_pictures.push_back({picture->picture(), is_front});
    }
}

// Pictures in FLAC files and Vorbis comments.
void read(const TagLib::List<TagLib::FLAC::Picture *> &pictures, Tags &tags) {
    for (TagLib::FLAC::Picture *picture : pictures) {
        tags.source_pictures.push_back({picture->data(), picture->type() == TagLib::FLAC::Picture::FrontCover});
    }
}

// Vorbis comments, APE tags, whose binary items are not fields, and ID3v1. TagLib's properties() is not virtual.
template <typename Tag>
void read(Tag *tag, Tags &tags) {
    if (tag == nullptr) return;
    const PropertyMap fields = tag->properties();
    add_missing(tags, fields);
    note_unsupported(tags, fields.unsupportedData());
    if constexpr (requires { tag->pictureList(); }) read(tag->pictureList(), tags);
}

// Attributes that TagLib does not map to a field keep their own names. Those about the file itself are left out.
void read(TagLib::ASF::Tag *tag, Tags &tags) {
    if (tag == nullptr) return;
    const PropertyMap fields = tag->properties();
    add_missing(tags, fields);
    for (const String &attribute : fields.unsupportedData()) {
        static constexpr std::array<std::string_view, 6> file_attributes{"WMFSDK",      "IsVBR",   "DeviceConformance",
                                                                         "WM/Encoding", "WM/WMAD", "WM/Picture"};
        std::string name = attribute.to8Bit(true);
        if (std::ranges::any_of(file_attributes, [&](std::string_view start) { return name.starts_with(start); }))
            continue;
        if (name.starts_with("WM/")) name.erase(0, 3);
        for (const TagLib::ASF::Attribute &value : tag->attribute(attribute)) {
            const String text = value.toString();
            if (text.isEmpty()) {
                tags.note_not_kept(name);
            } else {
                tags.fields[String(name).upper()].append(text);
            }
        }
    }
}

// Atoms keep their names, except ReplayGain, which becomes fields because it may have to be corrected. TagLib cannot
// write freeform atoms with a colon in the name.
void read_atom(const String &name, const TagLib::MP4::Item &item, Tags &tags) {
    const std::string plain = name.to8Bit(true);
    const std::string last = plain.substr(plain.rfind(':') + 1);
    const String field = String(last, String::UTF8).upper();
    if (field.startsWith("REPLAYGAIN_") || name == "desc" || name == "ldes") {
        tags.fields.insert(name == "desc"   ? "DESCRIPTION"
                           : name == "ldes" ? "LONGDESCRIPTION"
                                            : field,
                           item.toStringList());
    } else if (plain.starts_with("----") && std::ranges::count(plain, ':') != 2) {
        tags.note_not_kept(plain.substr(plain.find(':', 5) + 1));
    } else {
        tags.atoms.insert(name, item);
    }
}

void read(TagLib::MP4::Tag *tag, Tags &tags) {
    if (tag == nullptr) return;
    PropertyMap fields = tag->properties();
    fields.erase("PODCASTDESC");  // which TagLib uses for every description
    add_missing(tags, fields);
    const StringList others = fields.unsupportedData();
    for (const auto &[name, item] : tag->itemMap()) {
        if (name != "covr" && (others.contains(name) || name == "desc")) read_atom(name, item, tags);
    }
}

// Reads all tags of a file if TagLib accepts it as a `File`.
template <typename File, typename... GetTags>
void read_file(const std::string &path, Tags &tags, GetTags... get_tags) {
    File file(path.c_str(), false);
    if (file.isValid()) (read(get_tags(file), tags), ...);
}

constexpr auto main_tag = [](auto &file) { return file.tag(); };
constexpr auto id3v2 = [](auto &file) { return file.ID3v2Tag(); };
constexpr auto id3v1 = [](auto &file) { return file.ID3v1Tag(); };
constexpr auto ape = [](auto &file) { return file.APETag(); };
constexpr auto pictures = [](auto &file) { return file.pictureList(); };
constexpr auto xiph = [](auto &file) { return file.xiphComment(); };

void read_ogg(const std::string &path, AVCodecID codec, Tags &tags) {
    if (codec == AV_CODEC_ID_VORBIS) read_file<TagLib::Ogg::Vorbis::File>(path, tags, main_tag);
    if (codec == AV_CODEC_ID_OPUS) read_file<TagLib::Ogg::Opus::File>(path, tags, main_tag);
    if (codec == AV_CODEC_ID_FLAC) read_file<TagLib::Ogg::FLAC::File>(path, tags, main_tag);
    if (codec == AV_CODEC_ID_SPEEX) read_file<TagLib::Ogg::Speex::File>(path, tags, main_tag);
}

// TagLib reads WAV files only if they have ID3v2 tags: libavformat knows more of WAV's own tags.
void read_wav(const std::string &path, Tags &tags) {
    TagLib::RIFF::WAV::File file(path.c_str(), false);
    if (!file.isValid() || !file.hasID3v2Tag()) return;
    read(file.ID3v2Tag(), tags);
    read(file.InfoTag(), tags);
}

// `kind`: the format that libavformat has detected.
void read_file_tags(const std::string &path, std::string_view kind, AVCodecID codec, Tags &tags) {
    if (kind == "flac") read_file<TagLib::FLAC::File>(path, tags, xiph, pictures, id3v2, id3v1);
    if (kind == "mp3" || kind == "aac") read_file<TagLib::MPEG::File>(path, tags, id3v2, ape, id3v1);
    if (kind == "ogg") read_ogg(path, codec, tags);
    if (kind.starts_with("mov,")) read_file<TagLib::MP4::File>(path, tags, main_tag);
    if (kind == "wv") read_file<TagLib::WavPack::File>(path, tags, ape, id3v1);
    if (kind == "ape") read_file<TagLib::APE::File>(path, tags, ape, id3v1);
    if (kind == "mpc" || kind == "mpc8") read_file<TagLib::MPC::File>(path, tags, ape, id3v1);
    if (kind == "tta") read_file<TagLib::TrueAudio::File>(path, tags, id3v2, id3v1);
    if (kind == "aiff") read_file<TagLib::RIFF::AIFF::File>(path, tags, main_tag);
    if (kind == "wav") read_wav(path, tags);
    if (kind == "asf") read_file<TagLib::ASF::File>(path, tags, main_tag);
}

// TagLib's field name for a metadata key of FFmpeg.
String field_name(const std::string &key) {
    static const std::map<std::string, const char *> others{{"album_artist", "ALBUMARTIST"},
                                                            {"track", "TRACKNUMBER"},
                                                            {"disc", "DISCNUMBER"},
                                                            {"publisher", "LABEL"},
                                                            {"sort_name", "TITLESORT"},
                                                            {"sort_artist", "ARTISTSORT"},
                                                            {"sort_album", "ALBUMSORT"},
                                                            {"show", "TVSHOW"},
                                                            {"sort_album_artist", "ALBUMARTISTSORT"},
                                                            {"sort_composer", "COMPOSERSORT"},
                                                            {"episode_id", "TVEPISODEID"},
                                                            {"episode_sort", "TVEPISODE"},
                                                            {"season_number", "TVSEASON"},
                                                            {"network", "TVNETWORK"},
                                                            {"title-sort", "TITLESORT"},
                                                            {"artist-sort", "ARTISTSORT"},
                                                            {"album-sort", "ALBUMSORT"},
                                                            {"tbpm", "BPM"},
                                                            {"tsrc", "ISRC"},
                                                            {"tmoo", "MOOD"},
                                                            {"tpe3", "CONDUCTOR"},
                                                            {"tpe4", "REMIXER"},
                                                            {"text", "LYRICIST"},
                                                            {"tkey", "INITIALKEY"},
                                                            {"tmed", "MEDIA"},
                                                            {"tlen", "LENGTH"}};
    const auto other = others.find(key);
    return other != others.end() ? String(other->second) : String(key, String::UTF8).upper();
}

// Whether the entry repeats another one, with a hyphen and its language appended to the key.
bool is_language_variant(const AVDictionary *dictionary, const std::string &key) {
    const size_t hyphen = key.rfind('-');
    return hyphen != std::string::npos && key.size() - hyphen == 4 &&
           av_dict_get(dictionary, key.substr(0, hyphen).c_str(), nullptr, 0) != nullptr;
}

// Text in an unknown encoding: UTF-8 if it is valid, else Latin-1.
String text_of(const char *bytes) {
    const String text(bytes, String::UTF8);
    return text.isEmpty() ? String(bytes, String::Latin1) : text;
}

void read_dictionary(const AVDictionary *dictionary, Tags &tags) {
    const AVDictionaryEntry *entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        if (is_language_variant(dictionary, entry->key)) continue;
        std::string key = entry->key;
        std::ranges::transform(key, key.begin(), [](unsigned char c) { return std::tolower(c); });
        if (key.starts_with("id3v2_priv")) {
            tags.note_not_kept("PRIV");
            continue;
        }
        const String name = field_name(key);
        if (name == "LANGUAGE") continue;  // the language of the audio track is kept elsewhere
        if (!tags.fields.contains(name)) tags.fields.insert(name, text_of(entry->value));
    }
}

bool is_file(const std::string &path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

// libavformat finds tags in the file or, in some formats, in its audio stream.
void read_source_tags(const AudioDecoder &source, Tags &tags) {
    const std::string path = source.path() == standard_stream ? "/dev/stdin" : source.path();
    if (is_file(path)) {
        const std::lock_guard lock(taglib_mutex());
        read_file_tags(path, source.container().iformat->name, source.stream().codecpar->codec_id, tags);
    }
    if (!tags.fields.isEmpty() || !tags.atoms.isEmpty()) return;
    read_dictionary(source.container().metadata, tags);
    read_dictionary(source.stream().metadata, tags);
}

}  // namespace tavik
