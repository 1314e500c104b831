#pragma once

#include "leveling/metadata/byte_file.h"

namespace quorvane {

/**
 * Vorbis comments (vendor, then fields "NAME=value" with lengths of 32 bits, little-endian) as FLAC
 * and Ogg streams hold them, without what their container puts around. The result has the vendor of
 * the new stream and every field of the old one, byte for byte and in order, and what follows the
 * fields there; gains for players are left out. A comment that cannot be read gives the new one
 * back.
 */
Bytes merged_comment(const Bytes& old_comment, const Bytes& new_comment);

}  // namespace quorvane
