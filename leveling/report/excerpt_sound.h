#pragma once

#include <string>

#include "leveling/audio/stretches.h"

/** What becomes of samples until a page can play them. */

namespace quorvane {

/** Brings the first to the loudness of the second, and both down where a peak would not fit. */
void make_equally_loud(Samples& first, Samples& second);

/**
 * The samples as an address that an audio element plays: Ogg Opus at 32 kbit/s a channel, in
 * base64. The same samples give the same text. Throws std::runtime_error with the library's reason.
 */
std::string audio_data_of(const Samples& samples);

}  // namespace quorvane
