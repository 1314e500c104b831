#pragma once

#include "cli/worker/job.h"

namespace cli {

/** What of a confinement the system could do. */
struct Confined {
    bool files = false;    // other files can neither be read nor written
    bool network = false;  // no socket can be made, and no program started
};

/**
 * Takes from the process, for good, what the work on this job does not need, so that a fault in a
 * decoder that reads a stranger's bytes stays within it: no new privileges; bounds for memory, for
 * the size of a file (by the input's size) and for open files; and where the kernel has the means,
 * files are read only in the system's folders, the program's own, the output's, the job's and the
 * input itself, written only in the output's folder and the job's, and there is no network, no
 * other program and no signal to other processes. To be called before the first other thread is
 * started.
 */
Confined confine(const Job& job);

}  // namespace cli
