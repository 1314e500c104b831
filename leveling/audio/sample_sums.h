#pragma once

#include <cstddef>

namespace quorvane {

/**
 * The largest absolute value of the samples; infinite or NaN when one of them is.
 */
float peak_of(const float* samples, std::size_t count);

/** The samples' squares added up; in which order is not told. */
double sum_of_squares(const float* samples, std::size_t count);

}  // namespace quorvane
