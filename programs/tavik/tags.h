// Tags and pictures of a source, and what is kept of them.
#pragma once

#include <taglib/mp4coverart.h>
#include <taglib/mp4item.h>
#include <taglib/tpropertymap.h>

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "audio_decoder.h"
#include "loudness.h"
#include "options.h"

namespace tavik {

// A picture as stored in the source.
struct SourcePicture {
    TagLib::ByteVector bytes;
    bool is_front_cover;
};

struct Tags {
    TagLib::PropertyMap fields;                            // by TagLib's names, which are in capitals
    TagLib::Map<TagLib::String, TagLib::MP4::Item> atoms;  // atoms of an MP4 source that are not represented by a field
    TagLib::MP4::CoverArtList pictures;                    // the front cover first
    std::vector<SourcePicture> source_pictures;            // pictures that TagLib has found
    std::vector<std::string> changes;                      // descriptions of what is kept in a changed form
    std::vector<std::string> not_kept;                     // names of what an MP4 file cannot store

    // Adds a name to not_kept unless it is there already.
    void note_not_kept(const std::string &name);
};

// To be locked while TagLib converts tags to fields or back: it fills tables of names on first use without locking.
std::mutex &taglib_mutex();

// The tags and pictures of a source, changed as the options ask, without tags about the source file itself. gain: dB
// applied to the audio, by which ReplayGain is corrected. Does not fail: tags that cannot be read are left out.
Tags read_tags(const AudioDecoder &source, const Options &options, double gain);

// Sets ReplayGain to measured values, if there are any.
void set_replay_gain(Tags &tags, const Loudness &measured);

// Names of all tags and of the pictures, for an output that cannot store any.
std::vector<std::string> names_of(const Tags &tags);

}  // namespace tavik
