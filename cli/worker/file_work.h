#pragma once

#include <functional>

#include "cli/archive/output_claim.h"
#include "cli/facts/run_facts.h"
#include "cli/worker/job.h"

namespace cli {

/**
 * Does all the work on one file, in the order of a list of stages, and tells what became of it: a
 * failure is an outcome, nothing is thrown. progress is called with 0 to 1. While it works it has
 * the claim to the output; where another process has it and the job is not to wait, the outcome is
 * Planned.
 */
FileFacts work_on(const Job& job, OutputClaim& claim, const std::function<void(double)>& progress);

}  // namespace cli
