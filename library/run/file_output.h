#pragma once

#include <string>

#include "library/run/work.h"

namespace quorvane {

/**
 * Levels a file of the caller's to a new file: written under a hidden name in its folder, and
 * renamed when it is whole and on the disk. Throws CallError and CancelledCall.
 */
Results level_to_file(const CallContext& call, const std::string& input, const std::string& output);

Results measure_of_file(const CallContext& call, const std::string& input);

}  // namespace quorvane
