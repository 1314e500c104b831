#pragma once

#include <mutex>

#include "Common/run/intermediates.h"
#include "Common/run/run_settings.h"

namespace level_engine {

/** What belongs to no run: settings of later runs, and what the last levelMain left. */
struct Process {
    std::mutex mutex;
    RunSettings settings;  // of later runs
    Intermediates left;    // of the last run
};

Process& process();

}  // namespace level_engine
