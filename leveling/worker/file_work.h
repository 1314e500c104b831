#pragma once

#include <functional>

#include "leveling/worker/job.h"

namespace quorvane {

/**
 * Does all the work on one file, in the order of a list of stages, up to the complete content of
 * the output in the job's part. A failure is an outcome; nothing is thrown. progress is called with
 * 0 to 1.
 */
WorkResult work_on(const Job& job, const std::function<void(double)>& progress);

}  // namespace quorvane
