#pragma once

#include <string>
#include <vector>

namespace quorvane {

/**
 * The word that is the fewest typing errors away (one: a letter added, left out, replaced, or two
 * neighbours swapped), "" where even that one needs more than a third of its letters. For "did you
 * mean".
 */
std::string nearest_word(const std::string& typed, const std::vector<std::string>& words);

/** " (did you mean podcast?)", or "" where nothing is near. */
std::string did_you_mean(const std::string& typed, const std::vector<std::string>& words);

}  // namespace quorvane
