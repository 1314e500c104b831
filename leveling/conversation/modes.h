#pragma once

#include <vector>

namespace quorvane {

/** Values split into a low and a high class. */
struct Modes {
    double threshold = 0;
    double low = 0;   // mean of the values below the threshold
    double high = 0;  // mean of the others
    bool found = false;

    double distance() const { return high - low; }
};

/**
 * Splits values, in dB, at the threshold that maximises the variance between the two classes (N.
 * Otsu, "A threshold selection method from gray-level histograms", IEEE Trans. SMC 9 (1979)). Not
 * found where there are fewer than two different values.
 */
Modes split_at_modes(const std::vector<float>& values_db);

/** The value below which this share (0 to 1) of the values lies; 0 for none. */
double percentile(std::vector<float> values, double share);

}  // namespace quorvane
