#pragma once

#include <string>

#include "leveling/facts/run_facts.h"

/** Places of findings in time, as buttons; the player takes those that its excerpts hold. */

namespace quorvane {

/** The times of a finding as a line of buttons, "" where it has no places. */
std::string place_marks(const Finding& finding);

/** A mark for each place of each finding, at its time over the width of a drawing. */
std::string pins(const FileFacts& facts);

}  // namespace quorvane
