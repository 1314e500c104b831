#pragma once

#include <string>

#include "Common/loud_reduction/LoudReduction.h"
#include "Common/reduce_loud_peak/CommandLine.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/reporting/progress.h"

namespace reduce_loud_peak {

/**
 * A bin is too loud when its peak is too far above the mean RMS. With the usual 15 dB
 * a voice's own peaks mostly pass, and a cough or a knock on the table does not.
 */
struct PeakRule {
    using Step = reduce_loud_peak::Step;
    using RmsRule = RmsOfAllSamples;
    static constexpr const char* kSource = "Common/reduce_loud_peak/ReduceLoudOperation";
    static constexpr progress_range::Range kMeasure = progress_range::kLoudPeakMeasure;
    static constexpr progress_range::Range kApply = progress_range::kLoudPeakApply;
    static constexpr double LevelFindings::*kFoundLevel = &LevelFindings::loud_peak_level_db;
    static constexpr double LevelFindings::*kFoundThreshold =
        &LevelFindings::loud_peak_threshold_db;

    static double level(const CBin& bin) { return bin.peak; }

    /** Where a warning about the settings goes: each step has its own stream. */
    static void warn(const char* text);
};

/** The passes of loud_reduction/LoudReduction.h with this step's rule. */
class ReduceLoudOperation : public LoudReduction<PeakRule> {
  public:
    explicit ReduceLoudOperation(const ReduceLoudArgs& args);

    /**
     * Prints the text, which ends with its own line end, if the verbosity is above 0. The step logs
     * nothing itself: this is the place for a developer's debug messages.
     */
    void Log(const std::string& text) const;

  private:
    int verbosity_;
};

/** Runs the step over the files that args name. Throws the step's errors. */
void ReduceLoud(const ReduceLoudArgs& args);

}  // namespace reduce_loud_peak
