#pragma once

#include <string>

#include "leveling/metadata/data_size.h"
#include "leveling/metadata/mpeg_frames.h"

/*
 * The note to the user about a file whose header and audio differ in length. It follows the file's
 * name; it is empty where the two agree.
 */

namespace quorvane {

constexpr const char* kOggCutShort = "is cut short: its last page is not marked as the last";

/** Throws FileError where so much lies beyond the size that the header cannot be believed. */
std::string length_note(const DataSize& data);

std::string length_note(const MpegStream& stream);

/**
 * The same for a file that is read as it stands, whatever it is. Throws FileError also for an MP3
 * stream of which libsndfile, for want of a count of its frames, would leave out a part;
 * std::system_error or std::runtime_error when the file cannot be read.
 */
std::string length_note(const std::string& path);

}  // namespace quorvane
