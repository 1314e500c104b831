#pragma once

#include <vector>

#include "leveling/facts/preparation_words.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * What was done to a leveled recording, without what a finding of at least that severity says
 * already, as that it was raised because it was quiet.
 */
std::vector<Done> notable_deeds(const FileFacts& facts, Phrasing phrasing, Severity least_shown);

}  // namespace quorvane
