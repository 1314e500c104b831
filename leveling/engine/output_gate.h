#pragma once

#include <string>

namespace quorvane {

/**
 * The last look at what the engine's last run made, before anybody gets it: throws
 * std::runtime_error unless the file has the input's rate, channels and frames, every sample is
 * finite, and neither its peak nor, as far as the engine tells it, its level has run away. Reads
 * the file through where the engine did not measure it as it was written.
 */
void require_sound_output(const std::string& input, const std::string& output);

}  // namespace quorvane
