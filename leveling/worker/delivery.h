#pragma once

#include <optional>
#include <string>
#include <vector>

#include "leveling/archive/output_claim.h"
#include "leveling/archive/record.h"
#include "leveling/facts/run_facts.h"
#include "leveling/storage/staged_output.h"
#include "leveling/worker/job.h"

namespace quorvane {

/** Where an output is to go, and what was known of the place when the run was planned. */
struct OutputPlace {
    std::string output;  // absolute; empty: there is none
    FileState found;
    std::string new_folder;  // missing_folder() of the output
};

/**
 * The parent's part in the output of one worker. A worker writes content only: its part is made
 * before it starts, and gets its protection, its record and its name after it has ended.
 */
class Delivery {
  public:
    Delivery(const Job& job, const OutputPlace& place);

    enum class Begun {
        Ready,  // the worker can start
        Taken,  // another process is at the same output
        Done    // another process has made the output meanwhile; facts() describe it
    };

    /**
     * Claims the output and makes the part, in a folder that is made if need be. Call it again
     * after Taken. Throws std::system_error.
     */
    Begun begin();

    /** Of an output that another process made. */
    const FileFacts& facts() const { return facts_; }

    /** The path of the part; empty for a job without output. */
    std::string part() const { return staged_ ? staged_->path() : ""; }

    /** The input as it was before the work. */
    InputRecord input_record(const std::string& hash) const { return {input_, input_state_, hash}; }

    /** Throws FileError where the input changed while it was worked on. */
    void require_unchanged() const;

    /**
     * Gives the part, which the worker has completed, the protection of the input and its name, and
     * records it. others: the other tracks of its conversation. Throws FileError or
     * std::system_error; then the output is as it was.
     */
    void deliver(const WorkResult& result, const std::vector<InputRecord>& others = {});

  private:
    bool was_made_meanwhile();
    DoneRecord record_of(const WorkResult& result, const std::vector<InputRecord>& others) const;

    std::string input_;
    JobOptions options_;
    OutputPlace place_;
    FileFacts facts_;
    FileState input_state_;  // before the work
    OutputClaim claim_;      // outlives the part, so that the folder is empty when it goes
    std::optional<StagedOutput> staged_;
    Existing existing_ = Existing::Keep;
};

}  // namespace quorvane
