#include "leveling/media/bit_rates.h"

#include <cstdlib>
#include <limits>
#include <vector>

namespace quorvane::media {
namespace {

/** Bit rates (kbit/s) of the codecs that know only some. */
std::vector<int> legal_rates(AVCodecID codec, int sample_rate_hz) {
    switch (codec) {
        case AV_CODEC_ID_MP3:
            if (sample_rate_hz >= 32000) {
                return {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
            }
            return {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
        case AV_CODEC_ID_MP2:
            if (sample_rate_hz >= 32000) {
                return {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
            }
            return {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
        case AV_CODEC_ID_AC3:
            return {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                    192, 224, 256, 320, 384, 448, 512, 576, 640};
        default:
            return {};
    }
}

}  // namespace

std::int64_t nearest_legal(std::int64_t bit_rate, AVCodecID codec, int sample_rate_hz) {
    std::int64_t nearest = bit_rate;
    std::int64_t distance = std::numeric_limits<std::int64_t>::max();
    for (int kilobits : legal_rates(codec, sample_rate_hz)) {
        const std::int64_t legal = kilobits * 1000LL;
        if (std::llabs(legal - bit_rate) < distance) {
            distance = std::llabs(legal - bit_rate);
            nearest = legal;
        }
    }
    return nearest;
}

}  // namespace quorvane::media
