#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/loss.h"

namespace quorvane {

/** Consecutive blocks of an ADPCM stream. */
struct AdpcmRun {
    std::uint64_t at = 0;     // offset of the first one; of no meaning where they are lost
    std::uint64_t count = 0;  // of blocks
    bool is_lost = false;
};

/** The blocks of IMA or Microsoft ADPCM in a WAV or Wave64 file, in the order of their time. */
struct AdpcmStream {
    std::uint64_t data_begin = 0;  // offsets of the samples in the file
    std::uint64_t data_end = 0;
    std::size_t block_bytes = 0;
    std::int64_t samples_per_block = 0;
    std::size_t channels = 0;
    bool is_ima = false;
    std::vector<AdpcmRun> runs;

    bool is_damaged() const;

    /** As many blocks as the header promises, lost ones included. */
    bool is_complete() const;

    /** The holes, in frames. */
    Loss loss() const;
};

/**
 * Looks at every block of such a file. The samples themselves have no check sum: damage shows where
 * the header of a block is none, and where zeros follow that no encoder writes. Bytes that were
 * inserted or removed move all later blocks, which are found again. Nothing for other files. Throws
 * std::system_error.
 */
std::optional<AdpcmStream> check_adpcm_blocks(const std::string& path);

/** Writes the file again with silent blocks in place of lost ones. Throws std::system_error. */
void write_repaired_adpcm(const std::string& from,
                          const AdpcmStream& stream,
                          const std::string& to);

}  // namespace quorvane
