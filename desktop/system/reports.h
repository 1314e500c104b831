#pragma once

#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace desktop {

/**
 * Writes the HTML report about the files to a place of its own in the user's cache and returns the
 * page to open. Throws std::exception.
 */
std::string write_cached_report(const std::vector<quorvane::FileFacts>& files);

}  // namespace desktop
