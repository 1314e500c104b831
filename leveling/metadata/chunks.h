#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * Writes the file `to` (replacing it): the audio of one file with the metadata of another, byte for
 * byte and in the order it had around the audio (all of it before the audio of Wave64). Both are of
 * one container: WAV (RIFF, RIFX), RF64 or BW64, Wave64, AIFF or AIFF-C, CAF.
 *
 * The chunks that describe the samples come from the audio file. Left out of the metadata are fill
 * chunks, overviews of the old waveform, and gains for players in an `id3 ` chunk. A `bext` chunk
 * gets a line of coding history and, from version 2 on, the loudness values of the new audio, or
 * "not set" when there are none; `loudness` is asked for nothing else.
 *
 * Returns false, writing nothing, when the files are not of one such container. Throws
 * std::system_error when a file cannot be read or written, std::runtime_error when the result would
 * not fit its container.
 *
 * The chunk calls of libsndfile do not serve here: what exceeds its header buffer of 100 KiB (a
 * picture, say) makes it write a file that it cannot read back, and for Wave64 there are none.
 */
bool copy_chunks(const std::string& metadata_from,
                 const std::string& audio_from,
                 const std::string& to,
                 const LoudnessSource& loudness);

/**
 * The same result can be made of the audio file itself where room was left before its first byte:
 * the bytes that the metadata in front of the audio will take, if the audio is written in its
 * input's encoding. None where the result has to be put together from two files: a `bext` chunk has
 * fields for a loudness that is not known yet, or libsndfile writes the container only at the
 * beginning of a file.
 */
std::optional<std::uint64_t> room_for_chunks(const std::string& metadata_from);

/**
 * Makes the result of copy_chunks of a file whose audio, as libsndfile wrote it, stands behind so
 * much room. Returns false, with nothing written, where the room is not what it takes or the file
 * holds more than audio. Throws as copy_chunks does.
 */
bool add_chunks(const std::string& metadata_from, const std::string& to, std::uint64_t room);

}  // namespace quorvane
