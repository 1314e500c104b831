#pragma once

#include <cstdint>
#include <string>

#include "leveling/metadata/byte_file.h"

namespace quorvane {

/*
 * MPEG audio has no place for metadata: tags stand before and behind it, several at once. FLAC
 * files bear them now and then, too. They are copied as the bytes they are, in their order.
 */

/** Where a file's audio stream lies between the tags: bytes from `begin` up to `end`. */
struct AudioRange {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

/** Finds ID3v2 at the start; ID3v1, APEv1 and v2, Lyrics3 and ID3v2.4 at the end. */
AudioRange audio_between_tags(ByteFile& file);

/** Write the tags before or behind the audio of `from`, without the gains for players. */
void copy_tags_before(ByteFile& from, const AudioRange& audio, ByteFile& to);
void copy_tags_behind(ByteFile& from, const AudioRange& audio, ByteFile& to);

/**
 * Writes the audio of one file between the tags of another to a third, whatever tags the audio's
 * own file has. Throws std::system_error, and std::runtime_error where the audio ends early.
 */
void copy_outer_tags(const std::string& tags_from,
                     const std::string& audio_from,
                     const std::string& to);

/** Writes a stretch of another file. Throws std::runtime_error when that ends before. */
void copy_bytes(ByteFile& from, std::uint64_t begin, std::uint64_t end, ByteFile& to);

}  // namespace quorvane
