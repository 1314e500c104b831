#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Common/outcome.h"
#include "Common/reporting/failure.h"
#include "Common/run/intermediates.h"

namespace level_engine {

/**
 * The outcome of a run, behind the C interface: it owns the texts and the arrays that the C
 * structures point to. It can be read on any thread once the run has ended.
 */
class OutcomeRecord {
  public:
    /** Who decides whether findings are collected: levelCollectFindings at any time, or the run. */
    enum class Collecting { kByProcess, kByRun };

    /** What becomes of the findings. */
    enum class Findings { kDrop, kKeep };

    explicit OutcomeRecord(Collecting by);
    OutcomeRecord(const OutcomeRecord&) = delete;
    OutcomeRecord& operator=(const OutcomeRecord&) = delete;
    ~OutcomeRecord() = default;

    /** The record of the running or last run on this thread; an empty one before the first. */
    static OutcomeRecord& of_this_thread();

    /** Makes a record the one of this thread until the next call. */
    static void use_on_this_thread(std::shared_ptr<OutcomeRecord> record);

    /** Clears the record for a run on this thread. */
    void begin_run();

    /** Keeps what the steps have found: from now on the record needs nothing of the thread. */
    void end_run();

    void set_input(const std::string& input) { input_ = input; }

    /** The run was a success of this kind; reason says why an input was copied. */
    void succeed(LevelOutcomeKind kind, const std::string& reason = "");

    /** A step's failure for which the input is copied; the cause is the failure noted first. */
    void copy_after_failure(int step, const Intermediates& intermediates);

    void cancel();

    /** The command line was wrong, as the failure says that was noted first. */
    void refuse();

    /** The run could not be started, for this reason. */
    void refuse_start(const std::string& reason) { set(kLevelWrongUsage, reason); }

    /**
     * The run failed: in this step, or with 0 before or after them. The cause is the failure that
     * was noted first, with words in place of the intermediate files' paths.
     */
    void fail(int step, const Intermediates& intermediates);

    const LevelOutcome& outcome() const { return outcome_; }

    void collect_findings(Findings findings) { collecting_ = findings == Findings::kKeep; }

    /** The same, unless that is the run's own decision. */
    void collect_by_process(Findings findings) {
        if (collecting_by_ == Collecting::kByProcess) {
            collect_findings(findings);
        }
    }

    /** Reads steps 6 and 7's files; the last passage ends with the recording. */
    void collect_passages(const std::string& cues,
                          const std::string& levels,
                          const std::string& gains);

    void collect_gain_curve(const std::string& smoothed_gains);

    /** What was found, also while the run is under way; null unless findings are collected. */
    const LevelFindings* findings();

    /** The intermediate files that the run may have left. */
    void keep_left_files(const Intermediates& files) { left_files_ = files; }

    /** Nothing when the run ended before it could have any. */
    const std::optional<Intermediates>& left_files() const { return left_files_; }

    /** Adds the first defect that was noted; words replace the intermediate files' paths. */
    void report_defect(const Intermediates& intermediates);

  private:
    void set(LevelOutcomeKind kind, const std::string& text);
    bool begins_with_input(const std::string& text) const;
    std::string reason_of(const std::string& text) const;
    void name_final(const Intermediates& intermediates);
    std::string without_paths(const std::string& text, const Intermediates& intermediates) const;

    LevelOutcome outcome_{kLevelNotRun,   0,  0, kLevelNoFile, "", "",
                          kLevelNoDefect, "", 0, -1,           -1, ""};
    std::string input_;
    std::string cause_;
    std::string reason_;
    std::string defect_reason_;
    std::string library_text_;
    std::optional<Intermediates> left_files_;
    LevelFindings found_;
    Collecting collecting_by_;
    bool running_ = false;
    bool collecting_ = false;
    std::vector<LevelPassage> passages_;

    /** The same gain for all bins from the end of the run before to this one's. */
    struct GainRun {
        double gain;
        std::size_t end;
    };

    // Few bins differ from the one before, and the last steps need the memory: the curve is stored
    // as runs of equal gains and expanded to one value a bin on request.
    std::vector<GainRun> gain_runs_;
    std::vector<double> gains_;
};

}  // namespace level_engine

using level_engine::OutcomeRecord;
