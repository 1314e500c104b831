#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace cli {

/** What an MPEG audio stream (layer III) consists of, counted frame by frame. */
struct MpegStream {
    std::uint64_t frames = 0;           // with audio; the first one with the count is none
    int samples_per_frame = 0;          // 1152, or 576 at the lower sample rates
    std::optional<std::uint64_t> told;  // frames after the stream's own count, if it has one
};

/**
 * Walks over the frame headers of an MP3 file. Nothing for a stream of free bit rate or of another
 * layer. Throws std::system_error.
 */
std::optional<MpegStream> count_mpeg_frames(const std::string& path);

/**
 * Writes the stream again with a true count of its frames in front ("Info" header), without its
 * tags. A decoder that guesses the length of a stream without such a count from its first bit rate
 * stops too early. Throws std::system_error or std::runtime_error.
 */
void write_with_frame_count(const std::string& from,
                            const MpegStream& stream,
                            const std::string& to);

}  // namespace cli
