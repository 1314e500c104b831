#include "leveling/audio/sample_sums.h"

#include <cstdint>
#include <cstring>
#include <iterator>
#include <numeric>

#include "Common/audio/wide_loops.h"

namespace quorvane {

namespace {

// Floats without their sign compare like the integers of their bits, which processors compare side
// by side. Infinity lies above all numbers there, and NaN above infinity.
QUORVANE_WIDE_LOOP
float wide_peak_of(const float* samples, std::size_t count) {
    std::int32_t peak = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::int32_t bits = 0;
        std::memcpy(&bits, samples + i, sizeof bits);
        bits &= 0x7FFFFFFF;
        peak = bits > peak ? bits : peak;
    }
    float value = 0;
    std::memcpy(&value, &peak, sizeof value);
    return value;
}

// Eight sums side by side, which do not wait for each other.
QUORVANE_WIDE_LOOP
double wide_sum_of_squares(const float* samples, std::size_t count) {
    constexpr std::size_t kSums = 8;
    double sums[kSums] = {};
    std::size_t i = 0;
    for (; i + kSums <= count; i += kSums) {
        for (std::size_t k = 0; k < kSums; ++k) {
            const double sample = static_cast<double>(samples[i + k]);
            sums[k] += sample * sample;
        }
    }
    for (; i < count; ++i) {
        sums[0] += static_cast<double>(samples[i]) * static_cast<double>(samples[i]);
    }
    return std::accumulate(std::begin(sums), std::end(sums), 0.0);
}

}  // namespace

float peak_of(const float* samples, std::size_t count) {
    return wide_peak_of(samples, count);
}

double sum_of_squares(const float* samples, std::size_t count) {
    return wide_sum_of_squares(samples, count);
}

}  // namespace quorvane
