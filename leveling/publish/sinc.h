#pragma once

#include <cstddef>
#include <vector>

namespace quorvane {

/**
 * A band-limited value at a point between samples, as weights: the ideal low-pass sin(pi t)/(pi t)
 * under the window of J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh window
 * function" (1974). The point lies `fraction` (0 to 1) of a sample after the sample that weight
 * taps/2 - 1 belongs to; taps is even. The cutoff is given relative to half the sampling rate (1:
 * all of it passes); the weights add up to 1, so that a constant keeps its value.
 */
std::vector<double> sinc_weights(double fraction, std::size_t taps, double cutoff = 1);

}  // namespace quorvane
