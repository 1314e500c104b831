#pragma once

#include <cstddef>
#include <string>

#include "cli/facts/run_facts.h"

namespace desktop {

enum class State { Waiting, Running, Finished };

/** One file of the list. */
struct Row {
    std::string input;
    std::string output;
    State state = State::Waiting;
    double fraction = 0;   // done, 0 to 1, while it runs
    double weight = 1;     // its share of the whole's progress
    cli::FileFacts facts;  // what became of it, once it is finished

    bool can_retry() const {
        return state == State::Finished && (facts.outcome == cli::Outcome::Failed ||
                                            facts.outcome == cli::Outcome::Interrupted);
    }

    bool is_measured() const { return state == State::Finished && facts.before; }

    bool failed() const {
        return state == State::Finished && facts.outcome == cli::Outcome::Failed;
    }

    bool has_result() const {
        return state == State::Finished && !output.empty() &&
               (facts.outcome == cli::Outcome::Leveled || facts.outcome == cli::Outcome::Copied ||
                facts.outcome == cli::Outcome::UpToDate || facts.outcome == cli::Outcome::Skipped);
    }
};

}  // namespace desktop
