#pragma once

#include <string>
#include <vector>

#include "leveling/audio/stretches.h"

namespace quorvane::media {

/**
 * Decodes stretches of a file's sound, one behind the other, without what lies between them. Times
 * count from the first sample. A stretch that reaches beyond the end is filled up with silence.
 *
 * stream: counted from 1 among the audio streams, 0 for the default one. Throws FileError,
 * std::system_error where the file cannot be read or no stretch has sound.
 */
Samples read_stretches(const std::string& path, int stream, const std::vector<Stretch>& stretches);

}  // namespace quorvane::media
