#pragma once

#include <cstddef>
#include <string>

#include "leveling/facts/run_facts.h"

namespace desktop {

/** Finished also stands for files that failed or were passed over. */
enum class State { Waiting, Running, Finished };

/** One file of the list. */
struct Row {
    std::string input;
    std::string output;
    State state = State::Waiting;
    double fraction = 0;        // done, 0 to 1, while it runs
    double weight = 1;          // its share of the whole's progress
    quorvane::FileFacts facts;  // what became of it, once it is finished

    /** Whether "Try Again" has a meaning. */
    bool can_retry() const {
        return state == State::Finished && (facts.outcome == quorvane::Outcome::Failed ||
                                            facts.outcome == quorvane::Outcome::Interrupted);
    }

    /** Whether a report can show it. */
    bool is_measured() const { return state == State::Finished && facts.before; }

    /** Not one that the user has cancelled. */
    bool failed() const {
        return state == State::Finished && facts.outcome == quorvane::Outcome::Failed;
    }

    /** Whether its output is there, to be played, dragged or shown in its folder. */
    bool has_result() const {
        return state == State::Finished && !output.empty() &&
               (facts.outcome == quorvane::Outcome::Leveled ||
                facts.outcome == quorvane::Outcome::Copied ||
                facts.outcome == quorvane::Outcome::UpToDate ||
                facts.outcome == quorvane::Outcome::Skipped);
    }
};

}  // namespace desktop
