#pragma once

#include <cstddef>

namespace quorvane {

/**
 * The largest absolute value of the samples. Infinite or not a number when one of them is: it then
 * is no finite number itself.
 */
float peak_of(const float* samples, std::size_t count);

/** The samples' squares added up; in which order is not told. */
double sum_of_squares(const float* samples, std::size_t count);

}  // namespace quorvane
