#pragma once

#include <optional>

#include "Common/outcome.h"
#include "cli/facts/run_facts.h"

namespace cli {

/**
 * What the engine found, in seconds and dB: passages and a gain curve of a length that a report can
 * draw; nothing if the run did not get that far.
 */
std::optional<Leveling> leveling_of(const LevelFindings& found);

}  // namespace cli
