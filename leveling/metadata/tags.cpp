#include "leveling/metadata/tags.h"

#include <sndfile.h>
#include <taglib/opusfile.h>
#include <taglib/vorbisfile.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "leveling/audio/tag_stream.h"
#include "leveling/metadata/flac_blocks.h"
#include "leveling/metadata/ogg_pages.h"
#include "leveling/metadata/outer_tags.h"
#include "leveling/metadata/vorbis_comment.h"

/*
 * One way for each format, all of them on bytes: what a library reads and writes again comes out in
 * the library's form, and what it does not know is gone. Only the pages of Ogg are left to one.
 */

namespace quorvane {
namespace {

constexpr unsigned kCommentPacket = 1;  // of every Ogg stream that is read here

/** Out of the library's type, whose bytes are signed. */
Bytes bytes_of(const TagLib::ByteVector& vector) {
    return {vector.begin(), vector.end()};
}

/**
 * The packet's mark, then the comment. The library pages the packet again but does not parse it.
 */
template <class OggFile>
void copy_ogg(const std::string& metadata_from,
              const std::string& audio_from,
              const std::string& to,
              const char* mark) {
    copy_from(audio_from, 0, to);
    {
        TagStream old_stream(metadata_from, TagStream::For::Reading);
        TagStream stream(to, TagStream::For::Writing);
        OggFile old_file(&old_stream, false);
        OggFile file(&stream, false);
        const Bytes old_packet = bytes_of(old_file.packet(kCommentPacket));
        const Bytes packet = bytes_of(file.packet(kCommentPacket));
        old_stream.require_no_error();
        const auto length = static_cast<std::ptrdiff_t>(strlen(mark));
        if (old_packet.size() < strlen(mark) || packet.size() < strlen(mark) ||
            memcmp(packet.data(), mark, strlen(mark)) != 0) {
            throw std::runtime_error("the comment of an Ogg stream cannot be read");
        }
        Bytes merged(mark, mark + length);
        const Bytes comment = merged_comment({old_packet.begin() + length, old_packet.end()},
                                             {packet.begin() + length, packet.end()});
        merged.insert(merged.end(), comment.begin(), comment.end());
        file.setPacket(kCommentPacket,
                       TagLib::ByteVector(reinterpret_cast<const char*>(merged.data()),
                                          static_cast<unsigned>(merged.size())));
        // The base's: the codec's own would parse the comment and write it again its way.
        if (!file.TagLib::Ogg::File::save()) {
            throw std::runtime_error("the comment of an Ogg stream cannot be written");
        }
        stream.require_no_error();
    }
    // Players know a stream by its number; the encoder has drawn a new one.
    set_ogg_serial(to, ogg_serial(metadata_from));
}

}  // namespace

bool copy_tags(const std::string& metadata_from,
               const std::string& audio_from,
               const std::string& to,
               int sndfile_format) {
    const int container = sndfile_format & SF_FORMAT_TYPEMASK;
    const int coding = sndfile_format & SF_FORMAT_SUBMASK;
    if (container == SF_FORMAT_FLAC) {
        copy_flac_blocks(metadata_from, audio_from, to);
    } else if (container == SF_FORMAT_MPEG) {
        copy_outer_tags(metadata_from, audio_from, to);
    } else if (container == SF_FORMAT_OGG && coding == SF_FORMAT_OPUS) {
        copy_ogg<TagLib::Ogg::Opus::File>(metadata_from, audio_from, to, "OpusTags");
    } else if (container == SF_FORMAT_OGG && coding == SF_FORMAT_VORBIS) {
        copy_ogg<TagLib::Ogg::Vorbis::File>(metadata_from, audio_from, to, "\x03vorbis");
    } else {
        return false;
    }
    return true;
}

}  // namespace quorvane
