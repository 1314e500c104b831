#pragma once

#include <cstdint>

#include "leveling/media/handles.h"

namespace quorvane::media {

/** The bit rate (bits per second) nearest to a wanted one that a codec knows. */
std::int64_t nearest_legal(std::int64_t bit_rate, AVCodecID codec, int sample_rate_hz);

}  // namespace quorvane::media
