#pragma once

#include <string>
#include <vector>

#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"
#include "leveling/report/report.h"

namespace quorvane {

/** page: the file's own, to link to; empty for one that was not measured. */
IndexRow index_row(const FileFacts& facts, const std::string& page, const ReportOptions& options);

/**
 * rows: one for each of the files, made while they finished; they are sorted here. conversation:
 * the name of its page, "" where there is none.
 */
std::string index_page(const FactsList& files,
                       std::vector<IndexRow> rows,
                       const std::string& conversation,
                       const ReportOptions& options);

}  // namespace quorvane
