#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace cli {

/**
 * An input: its path, and its place below the folder that was searched (for a file named on the
 * command line, its name alone).
 */
struct FoundFile {
    std::string path;
    std::string below;
};

/** A place that could not be read, and why. */
struct SearchProblem {
    std::filesystem::path path;
    std::string cause;
};

struct FoundFiles {
    std::vector<FoundFile> files;  // sorted by path, each file once
    std::vector<SearchProblem> problems;
    std::vector<SearchProblem> passed_over;  // links to files that are among the files themselves
    std::vector<std::filesystem::path> unsupported;  // in searched folders, sorted
};

/**
 * Finds the inputs behind the paths of a command line. A file that is named is taken whatever its
 * name; a folder is searched with everything below it for sound that can be written back, leaving
 * out hidden entries, names that end in the suffix, and leave_out with what lies below it (empty:
 * nothing). Links to folders are followed, each folder is entered once. A file that is found under
 * its own path and through a link is taken under its own, in whatever order they came.
 */
FoundFiles find_files(const std::vector<std::string>& paths,
                      const std::string& suffix,
                      const std::filesystem::path& leave_out);

}  // namespace cli
