#pragma once

#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * Figures of a report page as HTML with inline SVG, both over the file's whole duration and with
 * the passages behind the curves. The drawing stretches with the page, the labels do not.
 */
std::string loudness_figure(const FileFacts& facts);
std::string gain_figure(const FileFacts& facts);

/** "up", "down" or "none": how a passage is colored. */
const char* gain_class(double gain_db);

}  // namespace quorvane
