#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "cli/inputs/find_files.h"
#include "cli/options/settings.h"

namespace cli {

/** What is to happen with one input. */
struct PlannedFile {
    std::filesystem::path input;
    std::filesystem::path output;  // empty when only measuring
    std::string skip;              // why it is skipped; empty: it is worked on
};

/**
 * Names the output of every input. Throws UsageError when two inputs would write one output, an
 * output is an input, or --output does not fit.
 */
std::vector<PlannedFile> plan_outputs(const Settings& settings,
                                      const std::vector<FoundFile>& files);

/**
 * Refuses a report or JSON file that would take the place of an input, of an output, or of a file
 * that this program did not write, or a report that is no folder though there are several inputs.
 * Throws UsageError.
 */
void check_facts_paths(const Settings& settings,
                       const std::vector<PlannedFile>& files,
                       bool several);

}  // namespace cli
