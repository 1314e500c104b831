#pragma once

#include <string>

#include "leveling/facts/run_facts.h"
#include "leveling/report/report.h"

namespace quorvane {

/** Whether a page has an index beside it. */
enum class Place { Alone, InFolder };

/** The whole page of a file. What was not measured has its heading alone. */
std::string page_of(const FileFacts& facts, const ReportOptions& options, Place place);

}  // namespace quorvane
