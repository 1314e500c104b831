#pragma once

namespace level_engine {

/**
 * Adds the squares of so many samples to a sum, and raises a peak to the largest absolute one. The
 * sum's last bits are not those of the samples' order. Where a sample is no number or infinite, the
 * sum is not finite any more.
 */
void add_power_and_peak(const double* samples, long long count, double& squares, double& peak);

}  // namespace level_engine

using level_engine::add_power_and_peak;
