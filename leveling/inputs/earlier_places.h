#pragma once

#include <vector>

#include "leveling/inputs/find_files.h"
#include "leveling/request/request.h"

namespace quorvane {

/**
 * The output of a file stays where an earlier run put it below the output folder, although that run
 * searched a folder further up or down: FoundFile::below becomes the place whose record names this
 * very input.
 */
void keep_earlier_places(const OutputNames& names, std::vector<FoundFile>& files);

}  // namespace quorvane
