// What a file carries beside its audio, and what becomes of it.
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

// A picture as the source has it.
struct SourcePicture {
    TagLib::ByteVector bytes;
    bool is_front_cover;
};

struct Tags {
    TagLib::PropertyMap fields;                            // by TagLib's names, which are in capitals
    TagLib::Map<TagLib::String, TagLib::MP4::Item> atoms;  // those of an MP4 source that no field stands for
    TagLib::MP4::CoverArtList pictures;                    // the front cover first
    std::vector<SourcePicture> source_pictures;            // those that TagLib has found
    std::vector<std::string> changes;                      // in words: what is kept otherwise than it was
    std::vector<std::string> not_kept;                     // names of what an MP4 file has no place for

    // Notes each name once.
    void note_not_kept(const std::string &name);
};

// TagLib fills tables of names when it first needs them, without regard to other threads: to be held wherever its tags
// are turned into fields or back.
std::mutex &taglib_names();

// The tags and pictures of a source, as the options change them; those that tell about the source's file and not about
// the music are left out. gain: dB by which the audio is made louder, so that its ReplayGain is less. Never fails: tags
// that cannot be read are none.
Tags read_tags(const AudioDecoder &source, const Options &options, double gain);

// What was measured goes before what the source says.
void set_replay_gain(Tags &tags, const Loudness &measured);

// Names of all that there is, for an output that has no place for anything.
std::vector<std::string> names_of(const Tags &tags);

}  // namespace tavik
