#include "leveling/metadata/media_tags.h"

#include <taglib/asffile.h>
#include <taglib/mp4file.h>

#include <filesystem>
#include <stdexcept>

#include "leveling/audio/tag_stream.h"
#include "leveling/metadata/outer_tags.h"
#include "leveling/metadata/player_gains.h"

/*
 * What FFmpeg's muxers leave out: MP4 items that they do not know, pictures in ASF, and the tags
 * around raw streams. Only what is missing is added, so that what the muxer wrote stays.
 */

namespace quorvane {
namespace {

/** TagLib tells only that it failed. */
void save(bool saved, const char* what) {
    if (!saved) {
        throw std::runtime_error(std::string("the tags could not be written: ") + what);
    }
}

void copy_mp4(const std::string& from, const std::string& to, const std::string& gapless) {
    // The encoder's delay and padding in samples: those of the new sound, never the old one's.
    constexpr const char* kGapless = "----:com.apple.iTunes:iTunSMPB";
    TagStream old_stream(from, TagStream::For::Reading);
    TagStream new_stream(to, TagStream::For::Writing);
    TagLib::MP4::File old_file(&old_stream, false);
    TagLib::MP4::File new_file(&new_stream, false);
    old_stream.require_no_error();
    new_stream.require_no_error();
    if (!old_file.isValid() || !new_file.isValid() || !old_file.tag() || !new_file.tag()) {
        return;
    }
    TagLib::MP4::Tag& tag = *new_file.tag();
    bool changed = !gapless.empty();
    for (const auto& [name, item] : old_file.tag()->itemMap()) {
        // Free-form items are called "----:maker:name": the name alone tells a gain.
        const std::string last = name.substr(static_cast<unsigned>(name.rfind(":") + 1)).to8Bit();
        if (!tag.contains(name) && name != kGapless && !is_player_gain(last)) {
            tag.setItem(name, item);
            changed = true;
        }
    }
    if (!gapless.empty()) {
        tag.setItem(kGapless, TagLib::MP4::Item(TagLib::StringList(gapless)));
    }
    // Saving may move all that lies behind the tags.
    if (changed) {
        save(new_file.save(), "MP4 items");
        new_stream.require_no_error();
    }
}

void copy_asf(const std::string& from, const std::string& to) {
    constexpr const char* kPicture = "WM/Picture";
    TagStream old_stream(from, TagStream::For::Reading);
    TagStream new_stream(to, TagStream::For::Writing);
    TagLib::ASF::File old_file(&old_stream, false);
    TagLib::ASF::File new_file(&new_stream, false);
    old_stream.require_no_error();
    new_stream.require_no_error();
    if (old_file.isValid() && new_file.isValid() && old_file.tag()->contains(kPicture)) {
        new_file.tag()->setAttribute(kPicture, old_file.tag()->attribute(kPicture));
        save(new_file.save(), "ASF pictures");
        new_stream.require_no_error();
    }
}

/** The old file's tags, byte for byte, in place of those that the muxer made of them. */
void copy_outer(const std::string& from, const std::string& to) {
    const std::string tagged = to + ".tagged";
    copy_outer_tags(from, to, tagged);
    std::filesystem::rename(tagged, to);
}

}  // namespace

void copy_media_tags(const std::string& from,
                     const std::string& to,
                     const std::string& muxer,
                     const std::string& gapless) {
    if (muxer == "ipod" || muxer == "mp4") {
        copy_mp4(from, to, gapless);
    } else if (muxer == "asf") {
        copy_asf(from, to);
    } else if (muxer == "adts" || muxer == "wv" || muxer == "tta") {
        copy_outer(from, to);
    }
}

}  // namespace quorvane
