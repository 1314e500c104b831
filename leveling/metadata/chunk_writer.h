#pragma once

#include <cstdint>
#include <string>

#include "leveling/metadata/chunk_list.h"

namespace quorvane {

/**
 * Writes a container chunk by chunk. The sizes that are known only at the end are filled in by
 * finish(). Throws std::system_error when the file cannot be written.
 */
class ChunkWriter {
  public:
    /** What becomes of a file that is there. */
    enum class ExistingFile { kReplaced, kFilledIn };

    /** `layout` outlives the writer. */
    ChunkWriter(const Layout& layout,
                const std::string& path,
                ExistingFile existing = ExistingFile::kReplaced);

    /** Room for the sizes that do not fit 32 bits; filled in by finish(). */
    void reserve_long_sizes(const Bytes& content);

    void add(const Bytes& id, const Bytes& content);

    /** Throws std::runtime_error when the other file ends before the chunk does. */
    void copy(const Chunk& chunk, ByteFile& from);

    /** A chunk whose content stands in its place already: writes what belongs around it. */
    void leave(const Chunk& chunk);

    /**
     * Closes the file and puts the sizes into its beginning. Throws std::runtime_error when they
     * do not fit the container.
     */
    void finish();

  private:
    void header(const Bytes& id, std::uint64_t size);
    void end(const Chunk& chunk);
    void pad();

    const Layout& layout_;
    const std::string path_;
    ByteFile file_;
    std::uint64_t written_ = 0;
    std::uint64_t audio_bytes_ = 0;
    Bytes long_sizes_;
    std::uint64_t long_sizes_at_ = 0;
};

}  // namespace quorvane
