#pragma once

#include <cstdint>
#include <vector>

#include "leveling/metadata/byte_file.h"

namespace quorvane {

/** Where a frame of a FLAC stream begins. */
struct FlacFrame {
    std::uint64_t offset = 0;        // in bytes from the first frame
    std::uint64_t first_sample = 0;  // of each channel
};

/**
 * The frames of a stream with blocks of one size, found by their sync code, the check sum of their
 * headers and their number (FLAC format, frame header). `begin` and `end` are the audio's bytes in
 * the file. Throws std::system_error.
 */
std::vector<FlacFrame> flac_frames(ByteFile& file,
                                   std::uint64_t begin,
                                   std::uint64_t end,
                                   std::uint64_t block_samples);

}  // namespace quorvane
