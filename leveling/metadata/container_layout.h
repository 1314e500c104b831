#pragma once

#include <cstddef>

#include "leveling/metadata/byte_file.h"

namespace quorvane {

/*
 * A chunk container is an opening and a row of chunks: a name, a size and content, padded to an
 * alignment. What differs between the containers stands here as numbers, so that reading and
 * writing them is one piece of code.
 */

/** RIFF and RIFX are both Wave, BW64 is Rf64. */
enum class Container { None, Wave, Rf64, Wave64, Aiff, Caf };

/** How the chunks of a container are laid out. */
struct Layout {
    Container kind = Container::None;
    ByteOrder byte_order = ByteOrder::Little;
    Bytes opening;  // the file's first bytes, up to the first chunk
    std::size_t id_bytes = 4;
    std::size_t size_bytes = 4;
    bool size_counts_header = false;
    std::size_t alignment = 2;

    std::size_t header_bytes() const { return id_bytes + size_bytes; }
};

/** The bytes of a Wave64 chunk's name. */
constexpr std::size_t kGuidBytes = 16;

/** A size of 32 bits that stands elsewhere, or is not known. */
constexpr std::uint64_t kUnknown32 = 0xFFFFFFFF;

/** The layout by the file's first bytes; None when it is not a chunk container. */
Layout layout_of(ByteFile& file);

}  // namespace quorvane
