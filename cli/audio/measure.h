#pragma once

#include <functional>
#include <string>

#include "cli/facts/run_facts.h"

namespace cli {

/**
 * Measures a whole audio file: integrated loudness, range and true peak after EBU R128, sample
 * peak, RMS, and the loudness over time in windows of 3 s centred on their time, at most about a
 * thousand of them. progress is called with 0 to 1. Throws std::runtime_error, naming the cause,
 * when the file cannot be read.
 */
Loudness measure(const std::string& path, const std::function<void(double)>& progress);

}  // namespace cli
