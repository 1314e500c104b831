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
 * rows: one for each of the files, made while they finished; they are sorted here. conversations:
 * the names of their pages.
 */
std::string index_page(const FactsList& files,
                       std::vector<IndexRow> rows,
                       const std::vector<std::string>& conversations,
                       const ReportOptions& options);

}  // namespace quorvane
