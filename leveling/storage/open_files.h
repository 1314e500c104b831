#pragma once

#include <cstddef>

namespace quorvane {

/**
 * Makes sure that this process may have so many files open at a time, and raises its own limit as
 * far as the system lets it. Throws std::runtime_error that names the limit when it is too low:
 * otherwise every file would fail with a system error of its own.
 */
void require_open_files(std::size_t needed);

}  // namespace quorvane
