#pragma once

#include <string>

namespace cli {

/**
 * Decodes an audio file to 32-bit float WAV (RF64 beyond 4 GiB), sample by sample, without
 * clipping. Throws std::runtime_error with the cause.
 */
void decode_to_float(const std::string& from, const std::string& to);

/**
 * Encodes a file like another one: its format, and for Ogg Vorbis, Opus and MP3 a bit rate that is
 * not below that of `like`. Throws std::runtime_error with the cause.
 */
void encode_like(const std::string& from, const std::string& like, const std::string& to);

}  // namespace cli
