#pragma once

#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "library/run/settings.h"

namespace quorvane {

/** What the last call has found, in the form in which the C functions give it out. */
struct Results {
    quorvane_outcome outcome = QUORVANE_NOTHING_DONE;
    FileFacts facts;
    std::string verdict;
    std::string json;
    std::vector<std::string> sentences;       // of each finding
    std::vector<std::vector<double>> places;  // of each finding: begin, end, begin, ...
};

Results results_of(FileFacts facts, quorvane_outcome outcome, const Settings& settings);

/** The loudness of a moment, where it was measured. */
std::optional<quorvane_loudness> loudness_of(const FileFacts& facts, quorvane_moment moment);

}  // namespace quorvane
