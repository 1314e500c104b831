#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Common/outcome.h"
#include "Common/reporting/failure.h"
#include "Common/run/intermediates.h"

/**
 * The outcome of this process's last run, behind the C interface: it owns the texts and the arrays
 * that the C structures point to.
 */
class OutcomeRecord {
  public:
    static OutcomeRecord& instance();

    /** Forgets the last run; the next one is for this input. */
    void begin_run();

    void set_input(const std::string& input) { input_ = input; }

    /** The run was a success of this kind; reason says why an input was copied. */
    void succeed(LevelOutcomeKind kind, const std::string& reason = "");

    /** A step's failure for which the input is copied; the cause is the failure noted first. */
    void copy_after_failure(int step, const Intermediates& intermediates);

    void cancel();

    /** The command line was wrong, as the failure says that was noted first. */
    void refuse();

    /**
     * The run failed: in this step, or with 0 before or after them. The cause is the failure that
     * was noted first, with words in place of the intermediate files' paths.
     */
    void fail(int step, const Intermediates& intermediates);

    const LevelOutcome& outcome() const { return outcome_; }

    void collect_findings(bool collect) { collecting_ = collect; }

    bool is_collecting() const { return collecting_; }

    /** Reads steps 6 and 7's files; the last passage ends with the recording. */
    void collect_passages(const std::string& cues,
                          const std::string& levels,
                          const std::string& gains);

    void collect_gain_curve(const std::string& smoothed_gains);

    /** What was found, or null when nobody asked for it. */
    const LevelFindings* findings();

    /** Adds the first defect that was noted; words replace the intermediate files' paths. */
    void report_defect(const Intermediates& intermediates);

  private:
    void set(LevelOutcomeKind kind, const std::string& text);
    bool begins_with_input(const std::string& text) const;
    std::string reason_of(const std::string& text) const;
    std::string without_paths(const std::string& text, const Intermediates& intermediates) const;

    LevelOutcome outcome_{kLevelNotRun, 0, 0, 0, "", "", kLevelNoDefect, "", 0, -1, -1, ""};
    std::string input_;
    std::string cause_;
    std::string reason_;
    std::string defect_reason_;
    std::string library_text_;
    bool collecting_ = false;
    std::vector<LevelPassage> passages_;

    /** The same gain for all bins from the end of the run before to this one's. */
    struct GainRun {
        double gain;
        std::size_t end;
    };

    // Few bins differ from the one before. The last steps need the room that the others would take:
    // the curve is laid out bin by bin when somebody asks.
    std::vector<GainRun> gain_runs_;
    std::vector<double> gains_;
};
