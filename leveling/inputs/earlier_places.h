#pragma once

#include <vector>

#include "cli/options/settings.h"
#include "leveling/inputs/find_files.h"

namespace quorvane {

/**
 * The output of a file stays where an earlier run put it below the output folder, although that run
 * searched a folder further up or down: FoundFile::below becomes the place whose record names this
 * very input. With --force each file gets the place that this command line means.
 */
void keep_earlier_places(const Settings& settings, std::vector<FoundFile>& files);

}  // namespace quorvane
