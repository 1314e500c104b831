#pragma once

#include <string>
#include <vector>

#include "cli/facts/run_facts.h"

namespace cli {

/** What a report shows beyond the facts. */
struct ReportOptions {
    std::vector<std::string> destinations;  // words of --for that were asked for
    bool listen = false;                    // excerpts to listen to
};

/**
 * Writes the report of a run: for one file a page at the path (or in it, if it is a folder), for
 * several a folder with a page for each measured file and index.html. Returns the path of the page
 * to open first. Throws std::system_error.
 */
std::string write_report(const std::string& path,
                         const std::vector<FileFacts>& files,
                         const ReportOptions& options = {});

/**
 * The page about one file: self-contained HTML that loads nothing, below 1 MB whatever the length.
 * Only a page with excerpts has a script, the switch between them.
 */
std::string report_page(const FileFacts& facts, const ReportOptions& options = {});

}  // namespace cli
