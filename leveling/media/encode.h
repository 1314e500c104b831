#pragma once

#include <string>

namespace quorvane::media {

/**
 * Encodes a WAV file as AAC in an MPEG-4 audio file, at the usual bit rate. Throws FileError, or
 * another std::runtime_error with the cause.
 */
void encode_as_aac(const std::string& from, const std::string& to);

}  // namespace quorvane::media
