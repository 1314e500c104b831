#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "leveling/metadata/container_layout.h"

namespace quorvane {

struct Chunk {
    Bytes id;
    std::uint64_t offset = 0;  // of its content
    std::uint64_t size = 0;    // of its content, as far as it is there
    std::uint64_t stated = 0;  // the same after its header

    std::string name() const { return std::string(id.begin(), id.begin() + 4); }
};

/** True where zeros stand in the place of a chunk's header, as some programs pad their files. */
bool is_padding(const Bytes& header);

/** The offset, aligned, of the first byte behind a run of zeros. */
std::uint64_t first_behind_padding(ByteFile& file, const Layout& layout, std::uint64_t at);

/**
 * The chunks up to the first that does not fit the file; only the audio may be cut short. Runs of
 * zeros between them are left out. Throws FileError for more chunks than any program writes.
 */
std::vector<Chunk> chunks_of(ByteFile& file, const Layout& layout);

/** True for the chunk that holds the samples. */
bool is_audio(const Chunk& chunk);

/** Chunks that belong to the samples or only fill space: never taken from the old file. */
bool describes_samples(const Chunk& chunk);

}  // namespace quorvane
