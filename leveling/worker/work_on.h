#pragma once

#include <functional>
#include <vector>

#include "leveling/worker/job.h"

namespace quorvane {

/**
 * Does all the work on one file, in the order of a list of stages, up to the complete content of
 * the output in the job's part. A failure is an outcome; nothing is thrown. progress is called with
 * 0 to 1.
 */
WorkResult work_on(const Job& job, const std::function<void(double)>& progress);

/**
 * The same of the tracks of one conversation, and of their mix where the last job is for one: one
 * result for each job. Where one of them fails, all do, with the cause of that one.
 */
std::vector<WorkResult> work_on_group(const std::vector<Job>& jobs,
                                      const std::function<void(double)>& progress);

/**
 * The same for a program that does the work in its own process: what goes wrong is thrown, and an
 * exception that progress throws ends the work. One that does not derive from std::exception passes
 * through whatever is under way.
 */
WorkResult work_on_here(const Job& job, const std::function<void(double)>& progress);

}  // namespace quorvane
