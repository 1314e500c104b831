#pragma once

#include <string>

namespace quorvane {

/**
 * Writes the FLAC file `to`: the audio of one file with the metadata blocks of another, byte for
 * byte and in their order (comment, pictures, cue sheet, applications' blocks, padding, unknown
 * ones), and its tags before and behind the stream. The stream's description comes from the audio
 * file, a seek table is rebuilt for the same positions, gains for players are left out.
 *
 * Throws std::system_error when a file cannot be read or written, std::runtime_error when one is no
 * FLAC file.
 */
void copy_flac_blocks(const std::string& metadata_from,
                      const std::string& audio_from,
                      const std::string& to);

}  // namespace quorvane
