#pragma once

#include <cstdint>
#include <string>

#include "leveling/facts/loss.h"

namespace quorvane {

/** How far a file could be decoded. */
struct Decoded {
    std::int64_t frames = 0;  // with the silence that stands for gaps
    std::string error;        // what ended it before the end of the file; empty when nothing did
    Loss loss;                // as far as the decoder knows
    int sample_rate_hz = 0;   // Opus has no rate of its own, and decoders choose
};

/**
 * Decodes an audio file to 32-bit float WAV (RF64 beyond 4 GiB), sample by sample, without
 * clipping, as far as it can be decoded. Throws std::runtime_error with the cause when nothing can,
 * or when the result cannot be written.
 */
Decoded decode_to_float(const std::string& from, const std::string& to);

/** How samples become integers of up to 16 bits. */
enum class Quantization {
    kDithered,  // see Dither; the silence is that of the file that is encoded like
    kRounded    // to the nearest
};

/**
 * Encodes a file like another one: its format, and for Ogg Vorbis, Opus and MP3 a bit rate that is
 * not below that of `like`. Throws std::runtime_error with the cause.
 */
void encode_like(const std::string& from,
                 const std::string& like,
                 const std::string& to,
                 Quantization quantization);

/**
 * Encodes a file of floats in one of the lossy formats that libsndfile writes. Throws
 * std::runtime_error with the cause.
 */
void encode_at(const std::string& from, const std::string& to, int format, double bits_per_second);

/**
 * Writes a file's samples as integers of up to 16 bits with dither, in the upper bits of a 16-bit
 * WAV file (RF64 beyond 4 GiB). source: what they were made from, for its silence. Throws
 * std::runtime_error with the cause.
 */
void write_dithered(const std::string& from,
                    const std::string& source,
                    const std::string& to,
                    int bits);

}  // namespace quorvane
