#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "leveling/archive/record.h"
#include "leveling/facts/run_facts.h"
#include "leveling/inputs/find_files.h"
#include "leveling/request/request.h"

namespace quorvane {

/** What is to happen with one input. */
struct PlannedFile {
    std::string input;
    std::string output;                     // empty when only measuring
    std::string skip;                       // why it is skipped
    std::string problem;                    // why it would fail; both empty: it is worked on
    std::int64_t bytes = 0;                 // size of the input
    FileState found = {};                   // the output, as it was when it was judged
    std::shared_ptr<FileFacts> known = {};  // facts that stand already: there is nothing to do
    bool renew = false;                     // what was found is ours and is to be replaced
    std::string note = {};                  // what the user should know of it
    bool searched = false;                  // found in a folder; else it was named
    bool settling = false;  // it changed a moment ago: it is not looked into before the others end
    int group = 0;          // what is leveled together has the same; 0: it is leveled by itself
    int tracks = 0;         // of its group
    std::string first_track = {};  // of its group: an input
    bool mix = false;  // the output is the mix of the group's tracks; the input is the first
};

/** The path of a file's output, from the file's place and the naming options. */
std::filesystem::path output_of(const OutputNames& names, const FoundFile& file);

/**
 * Names the output of every input. A file that is the output of another one, or bears the suffix
 * beside another one, is skipped, so that a pattern may be given a second time. Inputs that
 * would write one output get a `problem` each. Throws UsageError when OutputNames::output does not
 * fit. check_run_files must accept the plan before anything is written.
 */
std::vector<PlannedFile> plan_outputs(const OutputNames& names,
                                      const std::vector<FoundFile>& files);

/** A plan that measures every input and writes no audio. */
std::vector<PlannedFile> plan_measurements(const std::vector<FoundFile>& files);

/**
 * Looks at every file that is to be worked on before any work is done: whether its input can be
 * read, and whether its output's folder, or the nearest one that exists, can be written. What would
 * fail gets its `problem`. Nothing is changed on disk.
 */
void probe_places(std::vector<PlannedFile>& plan);

/**
 * Refuses outputs that cannot be made: a name that another kind of file would have, or a folder.
 * For the lines of a plan, which plan_outputs did not name. Throws UsageError.
 */
void check_outputs(const std::vector<PlannedFile>& files);

/**
 * Rejects a report or JSON file that would replace a file that this program did not
 * write, a log that is not text, or a report that is not a folder though there are several inputs
 * (`inputs` of them, found or merged). Throws UsageError.
 */
void check_facts_paths(const Request& request, std::size_t inputs);

}  // namespace quorvane
