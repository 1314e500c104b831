#pragma once

#include <filesystem>
#include <vector>

#include "cli/facts/run_facts.h"
#include "cli/inputs/plan.h"
#include "cli/options/settings.h"

namespace cli {

/** What a command line asks to be done. */
struct WorkList {
    std::vector<PlannedFile> files;                  // in the order of their paths, or of the plan
    std::vector<std::filesystem::path> unsupported;  // as found_files() tells them
    std::vector<FileFacts> others;  // what was named and is not there, or is there twice
};

/**
 * Looks which outputs are up to date: those files, and those that are to be left alone, get their
 * facts in PlannedFile::known.
 */
void judge_outputs(const Settings& settings, std::vector<PlannedFile>& files);

/**
 * Finds the inputs, or reads them from the plan of a dry run, takes this run's shard of them, and
 * judges their outputs, except of files that still have to settle. Throws UsageError.
 */
WorkList work_list(const Settings& settings);

}  // namespace cli
