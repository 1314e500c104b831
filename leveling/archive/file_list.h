#pragma once

#include <string>
#include <vector>

namespace quorvane {

enum class ListSeparator { LineEnd, Null };

/**
 * The paths that a file lists ("-": the standard input), one a line, empty ones left out. With
 * Null the paths may hold line ends, as `find -print0` writes them. Throws UsageError when the list
 * cannot be read.
 */
std::vector<std::string> read_file_list(const std::string& path, ListSeparator separator);

}  // namespace quorvane
