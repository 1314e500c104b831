#pragma once

#include <vector>

#include "leveling/worker/job.h"

namespace quorvane {

/** What of a confinement the system could do. */
struct Confined {
    bool files = false;  // other files can neither be read nor written
    bool calls = false;  // only the system calls of a worker are allowed
};

/**
 * Takes from the process, for good, what the work on these jobs does not need, so that a fault in a
 * decoder that reads a stranger's bytes stays within it: no new privileges; bounds for memory, for
 * the size of a file (by the largest input) and for open files; and where the kernel has the means,
 * files are read only in the system's folders, the program's own, the scratch directory and the
 * inputs, written only in the scratch directory and the output's part, and system calls are limited
 * to a list. To be called before the first other thread is started.
 */
Confined confine(const std::vector<Job>& jobs);

}  // namespace quorvane
