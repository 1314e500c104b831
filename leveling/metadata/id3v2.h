#pragma once

#include <cstdint>

#include "leveling/metadata/byte_file.h"

namespace quorvane {

/*
 * ID3v2 tags are kept as the bytes they are: versions 2.2, 2.3 and 2.4 differ in how a size is
 * written, where the unsynchronisation is applied and what follows the header, and a tag that is
 * read and written again by a library comes out in another version or with frames cut short.
 */

/** The bytes that a tag's header and its footer have each. */
constexpr std::size_t kId3HeaderBytes = 10;

/**
 * The length of the whole tag, header and footer counted, that begins with these bytes; 0 when they
 * are not a tag's header. Needs kId3HeaderBytes of them.
 */
std::uint64_t id3v2_length(const Bytes& start);

/** The same for the footer ("3DI") of a tag that stands behind the audio. */
std::uint64_t id3v2_length_by_footer(const Bytes& footer);

/**
 * The tag without the frames that hold gains for players. Every other frame stays byte for byte;
 * their room becomes padding, so that the tag keeps its length (with a footer, which excludes
 * padding, it gets shorter). A tag without such frames, or of a form that cannot be read, comes
 * back as it was.
 */
Bytes without_player_gains(const Bytes& tag);

}  // namespace quorvane
