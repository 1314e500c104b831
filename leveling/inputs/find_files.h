#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quorvane {

/**
 * An input: its path, and its place below the folder that was searched (for a file named on the
 * command line, its name alone).
 */
struct FoundFile {
    enum class Origin { Named, Searched };

    std::string path;
    std::string below;
    std::string note = {};  // what the user should know of it, "" for nothing
    Origin origin = Origin::Named;
};

/** A place that could not be read, and why. There may be a million of them. */
struct SearchProblem {
    std::string path;
    std::string cause;
};

struct FoundFiles {
    std::vector<FoundFile> files;  // sorted by path, each file once
    std::vector<SearchProblem> problems;
    std::vector<SearchProblem> passed_over;  // links to files that are among the files themselves
    std::vector<std::filesystem::path> unsupported;  // in searched folders, sorted
};

/** What a search does with outputs that the records of their folders know. */
enum class OwnOutputs {
    LeaveOut,
    Take,  // as a run that only measures does
};

/** Whether FoundFile::below begins with the name of the PATH, or of a named file's folder. */
enum class Top { Drop, Keep };

struct SearchRules {
    std::string suffix;                // of outputs
    std::filesystem::path output_dir;  // empty: outputs go beside their inputs
    OwnOutputs own_outputs = OwnOutputs::LeaveOut;
    Top top = Top::Drop;
};

/**
 * Finds the inputs behind the paths of a command line. A file that is named is taken whatever its
 * name, with a note if it is an output of an earlier run; a folder is searched with everything
 * below it for sound that can be written back. A search leaves out hidden entries, outputs of
 * earlier runs that are as they were recorded, names that end in the suffix unless a record shows
 * that they were edited since, and the output folder if outputs have no suffix. Links to folders
 * are followed, each folder is entered once. A file that is found under its own path and through a
 * link is taken under its own, in whatever order they came.
 */
FoundFiles find_files(std::vector<std::string> paths, const SearchRules& rules);

/**
 * Of files somewhere below the folder `root`, those that a search of it would find, as it would
 * find them. Their folders are not searched. Give the paths in the order of their folders, whose
 * records are read once for each.
 */
FoundFiles find_files_below(const std::string& root,
                            const std::vector<std::string>& paths,
                            const SearchRules& rules);

}  // namespace quorvane
