#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/inputs/plan.h"
#include "leveling/request/request.h"

namespace quorvane {

/** What was looked at before any work, and what it will take. */
struct Preflight {
    std::size_t to_do = 0;
    double audio_s = 0;              // of the files to do
    std::vector<std::string> notes;  // on the whole: disks that are too small
};

/**
 * Opens every input that is to be worked on, tries every output folder without leaving anything in
 * it, and adds up the bytes that the outputs and the temporary files will take. A file that cannot
 * be worked on gets a failure in PlannedFile::known. With Keep::All the others get facts too, with
 * the outcome Planned, as a dry run tells them.
 */
enum class Keep { Failures, All };
Preflight preflight(const Request& request, std::vector<PlannedFile>& files, Keep keep);

}  // namespace quorvane
