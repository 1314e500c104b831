#pragma once

#include <cmath>
#include <cstdint>

/** The steps on audio process mono and stereo. */
constexpr int kMostChannels = 2;

/** The level of silence, and the lowest one that is written: a logarithm of 0 has no number. */
constexpr double kSilence_db = -200.0;

/** Linear amplitude of a level in dB: 10^(dB/20). */
inline double db_to_linear(double db) {
    return std::pow(10.0, db / 20.0);
}

/** Level in dB of a linear amplitude above 0: 20 log10(amplitude). */
inline double linear_to_db(double amplitude) {
    return 20.0 * std::log10(amplitude);
}

/**
 * Frames that ms milliseconds last: (ms * sample rate) / 1000, truncated toward zero. The product
 * is taken in 32 bits and wraps (above about 48 s at 44.1 kHz), which settings files rely on.
 */
inline int ms_to_frames(int ms, int sample_rate_hz) {
    const std::uint32_t product =
        static_cast<std::uint32_t>(ms) * static_cast<std::uint32_t>(sample_rate_hz);
    return static_cast<std::int32_t>(product) / 1000;
}

/**
 * (a + b - 1) / b for b > 0: a / b rounded up. A header may promise as many frames as a number
 * holds: no sum may go beyond them.
 */
inline long long ceildiv(long long a, long long b) {
    return a > 0 ? (a - 1) / b + 1 : (a + b - 1) / b;
}
