#pragma once

#include <string>
#include <vector>

#include "leveling/inputs/find_files.h"
#include "leveling/inputs/plan.h"
#include "leveling/request/request.h"

namespace quorvane {

/**
 * Compares every file that the run will write (outputs, records, log, JSON, report, and where the
 * standard streams go) with every file that it reads (inputs, lists, plan, options file, and the
 * `results` that a merge reads) and with each other. Call it with the files of the whole run,
 * before anything is opened for writing. Throws UsageError that names the two files which are one.
 */
void check_run_files(const Request& request,
                     const std::vector<PlannedFile>& files,
                     const std::vector<std::string>& results = {});

/**
 * Refuses a log, or another file that the run writes, under the name of an input that is missing:
 * it would be the next run's input. Throws UsageError.
 */
void check_missing_inputs(const Request& request, const std::vector<SearchProblem>& missing);

}  // namespace quorvane
