#pragma once

#include <string>

namespace quorvane {

/**
 * Writes the file `to`: the audio of one file with the tags and pictures of another of the same
 * format, which is FLAC, Ogg Vorbis, Ogg Opus or MP3. Every field comes along byte for byte; only
 * gains for players (ReplayGain, R128) are left out, since they belong to the old loudness.
 *
 * Returns false, writing nothing, for other formats. Throws std::system_error or std::runtime_error
 * when a file cannot be read or written.
 */
bool copy_tags(const std::string& metadata_from,
               const std::string& audio_from,
               const std::string& to,
               int sndfile_format);

}  // namespace quorvane
