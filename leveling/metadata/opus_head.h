#pragma once

#include <string>

namespace quorvane {

/**
 * Writes a copy of an Ogg Opus file whose header gives 48 kHz as the rate of the original sound.
 * Opus is always played at 48 kHz; libsndfile decodes at the rate of the header, and the peaks and
 * the loudness of such a decoding are up to 0.3 dB below those that players and meters find. Throws
 * std::system_error, or std::runtime_error for no Ogg Opus file.
 */
void write_opus_at_full_rate(const std::string& from, const std::string& to);

}  // namespace quorvane
