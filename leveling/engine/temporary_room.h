#pragma once

#include <string>

namespace quorvane {

/**
 * Room that a run's temporary files take at their peak, in sizes of the file that the engine reads.
 * Measured: 2.0 for PCM and float files, since two audio files exist at a time, and 2.6 for FLAC,
 * whose intermediate files are louder than the recording and compress less.
 */
constexpr double kTemporarySizes = 2.7;

/**
 * Throws NoRoomError, to be put behind the input's name, unless the disk of a directory has
 * room for the temporary files of a run over the input. What cannot be asked is left to the run.
 */
void require_temporary_room(const std::string& input, const std::string& directory);

}  // namespace quorvane
