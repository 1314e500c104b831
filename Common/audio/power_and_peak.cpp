#include "Common/audio/power_and_peak.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>

#include "Common/audio/wide_loops.h"

namespace level_engine {

namespace {

// Eight sums and peaks side by side, which do not wait for each other.
QUORVANE_WIDE_LOOP
void add_wide(const double* samples, long long count, double& squares, double& peak) {
    constexpr int kTogether = 8;
    double sums[kTogether] = {};
    double peaks[kTogether] = {};
    long long i = 0;
    for (; i + kTogether <= count; i += kTogether) {
        for (int k = 0; k < kTogether; ++k) {
            const double sample = samples[i + k];
            const double size = std::fabs(sample);
            sums[k] += sample * sample;
            peaks[k] = peaks[k] < size ? size : peaks[k];
        }
    }
    for (; i < count; ++i) {
        sums[0] += samples[i] * samples[i];
        peaks[0] = std::max(peaks[0], std::fabs(samples[i]));
    }
    squares += std::accumulate(std::begin(sums), std::end(sums), 0.0);
    peak = std::max(peak, *std::max_element(std::begin(peaks), std::end(peaks)));
}

}  // namespace

void add_power_and_peak(const double* samples, long long count, double& squares, double& peak) {
    add_wide(samples, count, squares, peak);
}

}  // namespace level_engine
