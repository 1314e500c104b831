#pragma once

#include <cstddef>
#include <ctime>
#include <map>
#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** Counts of a watch since its start, for monitoring. */
struct WatchMetrics {
    std::map<Outcome, std::size_t> files;  // that were finished, by outcome
    double audio_s = 0;                    // of the files that were leveled
    double work_s = 0;                     // that workers took, all together
    std::size_t queue = 0;                 // files that arrived and are not finished
    bool watching = false;                 // the folder is there
    bool waiting_for_room = false;         // a disk is full
    std::time_t last_success = 0;          // 0: none yet
    std::time_t started = 0;

    void count(const FileFacts& facts, std::time_t now);
};

/** The counts in the text format of Prometheus, as the node exporter's textfile collector reads. */
std::string to_text(const WatchMetrics& metrics);

}  // namespace quorvane
