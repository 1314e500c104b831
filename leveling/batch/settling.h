#pragma once

#include <functional>
#include <string>
#include <vector>

#include "leveling/archive/record.h"

namespace quorvane {

/**
 * Whether the last change of a file is younger than so many seconds, so that it may still be
 * written to. A time in the future, as from another machine's clock, says nothing and counts as
 * settled.
 */
bool is_young(const FileState& file, double settle_s);

/**
 * Waits until none of the files is young, a minute at most, or until stopped() is true. Returns for
 * each whether it is young at the end.
 */
std::vector<bool> wait_until_settled(const std::vector<std::string>& files,
                                     double settle_s,
                                     const std::function<bool()>& stopped);

}  // namespace quorvane
