#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace desktop {

/** How an input's output stands before anything is done. */
enum class Existing {
    Nothing,   // no output exists yet
    UpToDate,  // whole, and made from this input as a drop makes it now: see leveling/archive
    Other      // something else, or made from another state of the input or with other options
};

/** One file of a drop. */
struct DropFile {
    std::string input;
    std::string output;
    Existing existing = Existing::Nothing;
    std::string failure;  // why nothing can be done with it; empty: it can
    std::string passed;   // why it is passed over on purpose; empty: it is not
    std::shared_ptr<quorvane::FileFacts> facts = {};  // of UpToDate: found out when it was made
};

/** What a drop comes to. */
struct DropPlan {
    std::vector<DropFile> files;
    std::vector<std::string> not_audio;       // named files whose content is not audio
    std::vector<std::string> locked_folders;  // in which outputs cannot be written
};

/**
 * Searches the paths and names the outputs as the command line does. With an output folder that is
 * not empty all outputs go there; else each stands beside its input. Takes its time on big folders:
 * call it on a thread of its own.
 */
DropPlan plan_drop(const std::vector<std::string>& paths, const std::string& output_folder);

/**
 * The first of "talk-leveled 2.wav", "talk-leveled 3.wav", ... that neither exists nor is taken.
 */
std::string free_name(const std::string& output, const std::set<std::string>& taken);

}  // namespace desktop
