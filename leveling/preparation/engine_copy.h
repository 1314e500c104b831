#pragma once

#include <functional>
#include <string>
#include <vector>

#include "leveling/preparation/sections.h"
#include "leveling/preparation/timeline.h"

namespace quorvane {

/**
 * Writes what the engine gets of a recording: the frames that the timeline keeps, times a gain,
 * through a high-pass where there is one, as 32-bit floats. progress is called with 0 to 1. Throws
 * std::runtime_error with the cause.
 */
void write_engine_copy(const std::string& recording,
                       const Timeline& timeline,
                       double gain,
                       const std::vector<Section>& high_pass,
                       const std::string& to,
                       const std::function<void(double)>& progress);

}  // namespace quorvane
