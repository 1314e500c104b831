#pragma once

namespace level_engine {

/**
 * Adds the squares of count samples to squares and raises peak to the largest absolute sample. It
 * adds in lanes, so the sum's last bits differ from a sum in the samples' order. A sample that is
 * NaN or infinite makes the sum not finite.
 */
void add_power_and_peak(const double* samples, long long count, double& squares, double& peak);

}  // namespace level_engine

using level_engine::add_power_and_peak;
