#include "cli/metadata/tags.h"

#include <sndfile.h>
#include <taglib/apetag.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/vorbisfile.h>
#include <taglib/xiphcomment.h>

#include <memory>
#include <stdexcept>

namespace cli {
namespace {

bool is_player_gain(const TagLib::String& name) {
    const TagLib::String upper = name.upper();
    return upper.startsWith("REPLAYGAIN_") || upper == "R128_TRACK_GAIN" ||
           upper == "R128_ALBUM_GAIN";
}

void save(bool saved, const char* what) {
    if (!saved) {
        throw std::runtime_error(std::string("the tags could not be written: ") + what);
    }
}

void copy_comment(const TagLib::Ogg::XiphComment* from, TagLib::Ogg::XiphComment* to) {
    if (!from || !to) {
        return;
    }
    to->removeAllFields();
    to->removeAllPictures();
    for (const auto& [name, values] : from->fieldListMap()) {
        if (is_player_gain(name)) {
            continue;
        }
        for (const TagLib::String& value : values) {
            to->addField(name, value, false);
        }
    }
    const TagLib::List<TagLib::FLAC::Picture*> pictures =
        const_cast<TagLib::Ogg::XiphComment*>(from)->pictureList();
    for (TagLib::FLAC::Picture* picture : pictures) {
        to->addPicture(new TagLib::FLAC::Picture(picture->render()));  // the comment owns it
    }
}

template <class OggFile>
void copy_ogg(const std::string& from, const std::string& to) {
    OggFile old_file(from.c_str(), false);
    OggFile new_file(to.c_str(), false);
    if (!old_file.isValid() || !new_file.isValid()) {
        return;
    }
    copy_comment(old_file.tag(), new_file.tag());
    save(new_file.save(), "Ogg comment");
}

void copy_id3v2(const TagLib::ID3v2::Tag& from, TagLib::ID3v2::Tag& to) {
    for (const TagLib::ID3v2::Frame* frame : from.frameList()) {
        const auto* text = dynamic_cast<const TagLib::ID3v2::UserTextIdentificationFrame*>(frame);
        if (text && is_player_gain(text->description())) {
            continue;
        }
        if (frame->frameID() == "RVA2") {
            continue;  // relative volume, a player gain too
        }
        // Frames are rendered as version 2.4 and read again: that also copies unknown ones.
        TagLib::ID3v2::Header header;
        header.setMajorVersion(4);
        TagLib::ID3v2::Frame* copy =
            TagLib::ID3v2::FrameFactory::instance()->createFrame(frame->render(), &header);
        if (copy) {
            to.addFrame(copy);
        }
    }
}

void copy_mp3(const std::string& from, const std::string& to) {
    TagLib::MPEG::File old_file(from.c_str(), false);
    TagLib::MPEG::File new_file(to.c_str(), false);
    if (!old_file.isValid() || !new_file.isValid()) {
        return;
    }
    int kinds = TagLib::MPEG::File::NoTags;
    if (old_file.hasID3v2Tag()) {
        copy_id3v2(*old_file.ID3v2Tag(), *new_file.ID3v2Tag(true));
        kinds |= TagLib::MPEG::File::ID3v2;
    }
    if (old_file.hasID3v1Tag()) {
        TagLib::Tag::duplicate(old_file.ID3v1Tag(), new_file.ID3v1Tag(true));
        kinds |= TagLib::MPEG::File::ID3v1;
    }
    if (old_file.hasAPETag()) {
        for (const auto& [name, item] : old_file.APETag()->itemListMap()) {
            if (!is_player_gain(name)) {
                new_file.APETag(true)->setItem(name, item);
            }
        }
        kinds |= TagLib::MPEG::File::APE;
    }
    if (kinds != TagLib::MPEG::File::NoTags) {
        save(new_file.save(kinds, TagLib::File::StripOthers, TagLib::ID3v2::v4,
                           TagLib::File::DoNotDuplicate),
             "MP3 tag");
    }
}

void copy_flac(const std::string& from, const std::string& to) {
    TagLib::FLAC::File old_file(from.c_str(), false);
    TagLib::FLAC::File new_file(to.c_str(), false);
    if (!old_file.isValid() || !new_file.isValid()) {
        return;
    }
    if (old_file.hasXiphComment()) {
        copy_comment(old_file.xiphComment(), new_file.xiphComment(true));
    }
    if (old_file.hasID3v2Tag()) {
        copy_id3v2(*old_file.ID3v2Tag(), *new_file.ID3v2Tag(true));
    }
    new_file.removePictures();
    for (TagLib::FLAC::Picture* picture : old_file.pictureList()) {
        new_file.addPicture(new TagLib::FLAC::Picture(picture->render()));  // the file owns it
    }
    save(new_file.save(), "FLAC comment");
}

}  // namespace

void copy_tags(const std::string& from, const std::string& to, int sndfile_format) {
    const int container = sndfile_format & SF_FORMAT_TYPEMASK;
    const int coding = sndfile_format & SF_FORMAT_SUBMASK;
    if (container == SF_FORMAT_FLAC) {
        return copy_flac(from, to);
    }
    if (container == SF_FORMAT_MPEG) {
        return copy_mp3(from, to);
    }
    if (container == SF_FORMAT_OGG && coding == SF_FORMAT_OPUS) {
        return copy_ogg<TagLib::Ogg::Opus::File>(from, to);
    }
    if (container == SF_FORMAT_OGG && coding == SF_FORMAT_VORBIS) {
        return copy_ogg<TagLib::Ogg::Vorbis::File>(from, to);
    }
}

}  // namespace cli
