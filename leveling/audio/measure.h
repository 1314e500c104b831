#pragma once

#include <functional>
#include <future>
#include <string>

#include "leveling/audio/scan.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/** What one reading of a file gives. */
struct Measurement {
    Loudness loudness;
    Scan scan;  // the peak to single precision
};

/**
 * Measures a whole audio file: integrated loudness, range and true peak after EBU R128, sample
 * peak, RMS, and the loudness over time in windows of 3 s centred on their time, at most about a
 * thousand of them. progress is called with 0 to 1. Throws std::runtime_error, naming the cause,
 * when the file cannot be read.
 */
Measurement measure(const std::string& path, const std::function<void(double)>& progress);

/** What the caller's thread does while a measurement is under way. */
enum class Beside {
    kWork,  // it needs a processor for itself
    kWait   // the measurement may take what there is
};

/**
 * The same in threads of its own, with the same result. The file is opened before this returns;
 * what goes wrong later comes with the future.
 */
std::future<Measurement> measure_meanwhile(const std::string& path, Beside beside);

}  // namespace quorvane
