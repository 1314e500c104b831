#pragma once

#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/report/report.h"

namespace quorvane {

/** What the page of a conversation keeps of a file until all are there. */
struct Lane {
    FileFacts facts;            // without curves
    std::string page;           // of the track alone; "" where it has none
    std::string plot;           // waveform and gain
    double final_level_db = 0;  // that each moment got besides its leveling gain
};

/** The lane of a track or a mix. */
Lane lane_of(const FileFacts& facts, const std::string& page);

/** The page of a conversation: a lane for each speaker, and the mix. */
std::string conversation_page(const std::vector<Lane>& lanes, const ReportOptions& options);

}  // namespace quorvane
