#pragma once

#include <optional>

#include "Common/outcome.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * What the engine found, in seconds and dB: passages and a gain curve of a length that a report can
 * draw; nothing if the run did not get that far.
 */
std::optional<Leveling> leveling_of(const LevelFindings& found);

}  // namespace quorvane
