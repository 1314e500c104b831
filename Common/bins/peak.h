#pragma once

#include <algorithm>
#include <cmath>

namespace level_engine {

/**
 * The largest absolute sample, or peak where none is larger. A maximum does not depend on the order
 * of its terms: a few are kept side by side, which do not wait for each other.
 */
inline double peak_of(const double* samples, long long count, double peak) {
    constexpr int kPeaks = 8;
    double peaks[kPeaks];
    std::fill_n(peaks, kPeaks, peak);
    long long i = 0;
    for (; i + kPeaks <= count; i += kPeaks) {
        for (int k = 0; k < kPeaks; ++k) {
            // A sample that is not a number loses the comparison and is passed over.
            const double size = std::fabs(samples[i + k]);
            peaks[k] = peaks[k] < size ? size : peaks[k];
        }
    }
    for (; i < count; ++i) {
        peaks[0] = std::max(peaks[0], std::fabs(samples[i]));
    }
    return *std::max_element(peaks, peaks + kPeaks);
}

}  // namespace level_engine

using level_engine::peak_of;
