#pragma once

#include <string>
#include <vector>

#include "cli/facts/run_facts.h"

namespace cli {

/**
 * Writes the report of a run: for one file a page at the path (or in it, if it is a folder), for
 * several a folder with a page for each measured file and index.html. Returns the path of the page
 * to open first. Throws std::system_error.
 */
std::string write_report(const std::string& path, const std::vector<FileFacts>& files);

/** The page about one file: self-contained HTML without scripts, below 1 MB whatever the length. */
std::string report_page(const FileFacts& facts);

}  // namespace cli
