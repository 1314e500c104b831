#pragma once

#include <cstdint>
#include <string>

#include "leveling/metadata/mpeg_frames.h"

namespace quorvane {

/**
 * Writes a stream again without its tags and damage: a true count of its frames in front ("Info"
 * header), silent frames in place of lost ones. A decoder that guesses the length of a stream
 * without such a count from its first bit rate stops too early, and one that meets damage gives
 * up. Throws std::system_error or std::runtime_error.
 */
void write_repaired_mpeg(const std::string& from, const MpegStream& stream, const std::string& to);

/**
 * Writes what LAME made of so many samples again, with a header that states count, delay and
 * padding: decoders then give these samples and no others. LAME itself leaves the header out where
 * it does not fit into a frame of the stream's bit rate. Throws as the other does.
 */
void write_mpeg_with_length(const std::string& from, std::int64_t samples, const std::string& to);

}  // namespace quorvane
