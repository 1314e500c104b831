#pragma once

#include <string>
#include <vector>

#include "leveling/media/decode.h"
#include "leveling/media/media_file.h"

namespace quorvane::media {

/** A sound of the file and the file that takes its place. */
struct NewSound {
    Sound sound;
    std::string codec;           // FFmpeg's name; empty: the source's
    std::string file;            // that libsndfile reads; frame for frame like `source`
    const DecodedSound* source;  // null while only trying
};

/**
 * Refuses, without reading the file's packets, what write_media could not write: a sound without
 * encoder, a stream that the container does not take. Throws FileError.
 */
void try_media(const MediaFile& file, const std::vector<NewSound>& sounds);

/**
 * Rewrites the file with the given sounds in place of its own. Packets of all other streams are
 * copied as they are; so are chapters, tags, languages and dispositions. Returns notes for the
 * user: what could not be taken along. Throws FileError.
 */
std::vector<std::string> write_media(const MediaFile& file,
                                     const std::vector<NewSound>& sounds,
                                     const std::string& to,
                                     const Progress& progress);

}  // namespace quorvane::media
