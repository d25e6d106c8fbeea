// TagLib writes the atoms. This file chooses the atom for each field and connects TagLib with the output.
#include "tag_writer.h"

#include <fmt/format.h>
#include <taglib/mp4file.h>
#include <taglib/mp4tag.h>
#include <taglib/tbytevectorstream.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "program_error.h"

namespace tavik {
namespace {

using TagLib::ByteVector;
using TagLib::PropertyMap;
using TagLib::String;
using TagLib::StringList;
namespace MP4 = TagLib::MP4;

constexpr size_t max_move_bytes = 1 << 20;  // moved at a time to make room

// The output as a stream for TagLib. Errors pass through TagLib as exceptions.
class OutputStream : public TagLib::IOStream {
 public:
    explicit OutputStream(OutputFile &output) : output_(output) {}

    TagLib::FileName name() const override { return ""; }
    bool readOnly() const override { return false; }
    bool isOpen() const override { return true; }
    long tell() const override { return position_; }
    long length() override { return static_cast<long>(output_.size()); }
    void truncate(long /*length*/) override { fail_on_shrinking(); }
    void removeBlock(unsigned long /*start*/, unsigned long /*length*/) override { fail_on_shrinking(); }

    void seek(long offset, Position from) override {
        const long start = from == Beginning ? 0 : from == Current ? position_ : length();
        position_ = std::clamp(start + offset, 0L, length());
    }

    ByteVector readBlock(unsigned long count) override {
        const long size = std::min(static_cast<long>(std::min<unsigned long>(count, INT32_MAX)), length() - position_);
        ByteVector bytes(static_cast<unsigned>(size), '\0');
        read(position_, bytes);
        position_ += size;
        return bytes;
    }

    void writeBlock(const ByteVector &bytes) override {
        write(position_, bytes);
        position_ += bytes.size();
    }

    // Never makes the file shorter: TagLib overwrites bytes that it does not need any more with padding.
    void insert(const ByteVector &bytes, unsigned long start, unsigned long replaced) override {
        if (replaced > bytes.size()) fail_on_shrinking();
        make_room(static_cast<long>(start + replaced), static_cast<long>(bytes.size() - replaced));
        position_ = static_cast<long>(start);
        writeBlock(bytes);
    }

 private:
    void make_room(long start, long room) {
        long end = room == 0 ? start : length();
        while (end > start) {
            const long count = std::min<long>(end - start, max_move_bytes);
            ByteVector bytes(static_cast<unsigned>(count), '\0');
            end -= count;
            read(end, bytes);
            write(end + room, bytes);
        }
    }

    void read(long position, ByteVector &bytes) {
        auto *data = reinterpret_cast<uint8_t *>(bytes.data());  // NOLINT(*-reinterpret-cast): TagLib's type of bytes
        std::span<uint8_t> rest(data, bytes.size());
        while (!rest.empty()) {
            const int64_t count = output_.read_at(static_cast<uint64_t>(position), rest);
            if (count <= 0) throw ProgramError(ExitCode::output, output_.name(), "cannot read it back");
            position += count;
            rest = rest.subspan(static_cast<size_t>(count));
        }
    }

    void write(long position, const ByteVector &bytes) {
        output_.seek(position, SEEK_SET);
        const auto *data = reinterpret_cast<const uint8_t *>(bytes.data());  // NOLINT(*-reinterpret-cast)
        output_.write({data, bytes.size()});
    }

    [[noreturn]] static void fail_on_shrinking() { throw std::logic_error("TagLib tried to shorten the file"); }

    OutputFile &output_;
    long position_ = 0;
};

// Atoms of fields that TagLib does not map, or for which players expect another name than the field's own.
constexpr std::array atom_names{std::pair("DESCRIPTION", "desc"),
                                std::pair("LONGDESCRIPTION", "ldes"),
                                std::pair("SYNOPSIS", "ldes"),
                                std::pair("ACOUSTID_FINGERPRINT", "----:com.apple.iTunes:Acoustid Fingerprint"),
                                std::pair("ACOUSTID_ID", "----:com.apple.iTunes:Acoustid Id"),
                                std::pair("INITIALKEY", "----:com.apple.iTunes:initialkey"),
                                std::pair("MUSICBRAINZ_ALBUMSTATUS", "----:com.apple.iTunes:MusicBrainz Album Status"),
                                std::pair("MUSICBRAINZ_ALBUMTYPE", "----:com.apple.iTunes:MusicBrainz Album Type")};

// Name of the freeform atom for a field. Players expect ReplayGain in lower case. TagLib would end the name at a colon.
String freeform_name(const String &field) {
    std::string name = field.to8Bit(true);
    std::ranges::replace(name, ':', '/');
    if (name.starts_with("REPLAYGAIN_")) {
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    }
    return "----:com.apple.iTunes:" + String(name, String::UTF8);
}

String atom_for(const MP4::Tag &tag, const String &field) {
    for (const auto &[name, atom] : atom_names) {
        if (field == name && !tag.contains(atom)) return atom;
    }
    return freeform_name(field);
}

// Compares numbers, or pairs such as 3/12, without leading zeros.
bool is_same_number(const String &a, const String &b) {
    const auto trim = [](const String &text) {
        std::string result;
        for (const char c : text.to8Bit(true)) {
            const bool is_leading_zero = result.empty() || result.ends_with('/') ? c == '0' : false;
            if (!is_leading_zero) result += c;
        }
        return result.ends_with('/') ? result.substr(0, result.size() - 1) : result;
    };
    return trim(a) == trim(b);
}

// Numeric atoms cannot store every value of a field, for example 128.5 beats or track A1. The exact value then goes
// into a freeform atom, and the numeric atom is removed if it became 0.
void keep_exact_values(MP4::Tag &tag, const PropertyMap &fields) {
    for (const auto &[field, values] : tag.properties()) {
        const auto original = fields.find(field);
        if (original == fields.end()) continue;
        const StringList &wanted = original->second;
        if (wanted == values || (wanted.size() == 1 && is_same_number(wanted.front(), values.front()))) continue;
        tag.setItem(freeform_name(field), wanted);
        if (values.front() != "0") continue;
        PropertyMap rest = tag.properties();
        rest.erase(field);
        tag.setProperties(rest);
    }
}

void set_fields(MP4::Tag &tag, PropertyMap fields) {
    const std::lock_guard lock(taglib_mutex());
    fields.removeEmpty();
    // TagLib would write this field into the atom for the encoder that made the file.
    const StringList encoded_by = fields["ENCODEDBY"];
    fields.erase("ENCODEDBY");
    for (const auto &[field, values] : tag.setProperties(fields)) tag.setItem(atom_for(tag, field), values);
    keep_exact_values(tag, fields);
    if (!encoded_by.isEmpty()) tag.setItem(freeform_name("ENCODEDBY"), encoded_by);
}

// Value of iTunSMPB: samples to skip at the start and at the end, and the number of samples in between.
String text_of(const PlayedPart &part) {
    const uint64_t padding = (part.frames - 1) * TAVIK_FRAME_LENGTH - part.samples;
    return fmt::format(
        " 00000000 {:08X} {:08X} {:016X} 00000000 00000000 00000000 00000000 00000000 00000000 00000000"
        " 00000000",
        TAVIK_FRAME_LENGTH, padding, part.samples);
}

// False if the stream is not a valid MP4 file or saving fails.
bool write_tags_into(TagLib::IOStream &stream, const Tags &tags, const std::optional<PlayedPart> &played_part) {
    MP4::File file(&stream, false);
    if (!file.isValid() || file.tag() == nullptr) return false;
    MP4::Tag &tag = *file.tag();
    const MP4::Item encoding_tool = tag.item("\251too");
    set_fields(tag, tags.fields);
    for (const auto &[name, item] : tags.atoms) {
        if (!tag.contains(name)) tag.setItem(name, item);
    }
    if (!tags.pictures.isEmpty()) tag.setItem("covr", tags.pictures);
    if (played_part) tag.setItem("----:com.apple.iTunes:iTunSMPB", StringList(text_of(*played_part)));
    tag.setItem("\251too", encoding_tool);
    return tag.save();
}

// Size in bytes of the header of a stream: all atoms up to the end of `moov`. Absent while it is not complete.
std::optional<size_t> header_size(std::span<const uint8_t> bytes) {
    constexpr size_t atom_header = 8;
    size_t position = 0;
    while (bytes.size() >= position + atom_header) {
        const auto atom = bytes.subspan(position);
        const size_t size = size_t{atom[0]} << 24 | size_t{atom[1]} << 16 | size_t{atom[2]} << 8 | size_t{atom[3]};
        position += std::max(size, atom_header);
        if (std::memcmp(&atom[4], "moov", 4) != 0) continue;
        return position <= bytes.size() ? std::optional(position) : std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

void write_tags(OutputFile &output, const Tags &tags, const std::optional<PlayedPart> &played_part) {
    OutputStream stream(output);
    if (!write_tags_into(stream, tags, played_part)) {
        throw ProgramError(ExitCode::output, output.name(), "cannot write its tags");
    }
}

std::span<const uint8_t> StreamTagger::process(std::span<const uint8_t> bytes) {
    if (is_done_) return bytes;
    header_.insert(header_.end(), bytes.begin(), bytes.end());
    const std::optional<size_t> size = header_size(header_);
    if (!size) return {};
    is_done_ = true;
    const auto *data = reinterpret_cast<const char *>(header_.data());  // NOLINT(*-reinterpret-cast): TagLib's bytes
    TagLib::ByteVectorStream stream(ByteVector(data, static_cast<unsigned>(*size)));
    if (!write_tags_into(stream, tags_, std::nullopt)) {
        throw std::logic_error("cannot write tags into the header of a stream");
    }
    std::vector<uint8_t> tagged(stream.data()->begin(), stream.data()->end());
    tagged.insert(tagged.end(), header_.begin() + static_cast<std::ptrdiff_t>(*size), header_.end());
    header_ = std::move(tagged);
    return header_;
}

}  // namespace tavik
