#pragma once

#include <string>

namespace cli {

/**
 * Copies tags and pictures from one file to another of the same format: FLAC, Ogg Vorbis, Ogg Opus
 * and MP3. Gains for players (ReplayGain, R128) are left out: they belong to the old loudness.
 * Files of other formats are left alone. Throws std::runtime_error when the tags cannot be written.
 */
void copy_tags(const std::string& from, const std::string& to, int sndfile_format);

}  // namespace cli
