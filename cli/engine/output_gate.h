#pragma once

#include <string>

namespace cli {

/**
 * The last look at a leveled file before anybody gets it: reads all of it and throws
 * std::runtime_error unless it has the input's rate, channels and frames, every sample is finite,
 * and neither its peak nor, as far as the engine tells it, its level has run away.
 */
void require_sound_output(const std::string& input, const std::string& output);

}  // namespace cli
