#pragma once

namespace quorvane {

/** The worker process: takes one job (see job.h) and returns the exit status. */
int worker_main();

}  // namespace quorvane
