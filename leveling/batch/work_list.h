#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/inputs/find_files.h"
#include "leveling/inputs/plan.h"
#include "leveling/request/request.h"

namespace quorvane {

/** What a command line asks to be done. */
struct WorkList {
    std::size_t size() const { return files.size() + missing.size() + passed_over.size(); }

    std::vector<PlannedFile> files;                  // in the order of their paths, or of the plan
    std::vector<std::filesystem::path> unsupported;  // as found_files() tells them
    std::vector<SearchProblem> missing;              // what was named and is not there
    std::vector<SearchProblem> passed_over;          // links to files that are there themselves
};

/** As facts, so that they are reported and counted like files. */
FileFacts facts_of(SearchProblem problem, Outcome outcome);

/**
 * Looks which outputs are up to date: those files, and those that are to be left alone, get their
 * facts in PlannedFile::known.
 */
void judge_outputs(const Request& request, std::vector<PlannedFile>& files);

/**
 * Finds the inputs, or reads them from the plan of a dry run, takes this run's shard of them, and
 * judges their outputs, except of files that still have to settle. Throws UsageError.
 */
WorkList work_list(const Request& request);

}  // namespace quorvane
