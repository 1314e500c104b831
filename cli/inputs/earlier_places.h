#pragma once

#include <vector>

#include "cli/inputs/find_files.h"
#include "cli/options/settings.h"

namespace cli {

/**
 * The output of a file stays where an earlier run put it below the output folder, although that run
 * searched a folder further up or down: FoundFile::below becomes the place whose record names this
 * very input. With --force each file gets the place that this command line means.
 */
void keep_earlier_places(const Settings& settings, std::vector<FoundFile>& files);

}  // namespace cli
