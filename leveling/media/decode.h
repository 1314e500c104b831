#pragma once

#include <functional>
#include <string>

#include "leveling/audio/recode.h"
#include "leveling/facts/loss.h"
#include "leveling/media/media_file.h"
#include "leveling/media/timeline.h"

namespace quorvane::media {

using Progress = std::function<void(double)>;  // 0 to 1

/** The sound of one stream, decoded to a file that libsndfile reads. */
struct DecodedSound {
    std::string file;  // WAV, or RF64 beyond 4 GiB; interleaved floating-point samples
    int sample_rate_hz = 0;
    int channels = 0;
    std::string layout;  // see Sound
    std::int64_t frames = 0;
    Timeline timeline;
    std::int64_t start_ns = 0;      // time of the first packet
    std::int64_t bit_rate = 0;      // of the stream's packets, bits per second
    std::int64_t lost_packets = 0;  // that could not be decoded
    std::int64_t read_errors = 0;   // that the container's reader met
    Loss loss;                      // its gaps hold silence
};

/**
 * Decodes one stream of a file to 32-bit float (64-bit where its samples need more than 24 bits)
 * without the samples that its container marks as padding. Pauses that the container's times show
 * are closed; where data are damaged, silence takes the place of what is lost. Throws FileError
 * when its sample rate or channels change, nothing can be decoded, or the disk is full.
 */
DecodedSound decode_sound(const std::string& path,
                          const Sound& sound,
                          const std::string& to,
                          const Progress& progress);

/**
 * The same for a file of libsndfile's formats, at which libsndfile gave up: every pause is damage.
 * Throws FileError as decode_sound does.
 */
Decoded decode_damaged(const std::string& path, const std::string& to);

}  // namespace quorvane::media
