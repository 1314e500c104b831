#pragma once

#include <string>

#include "Common/loud_reduction/LoudReduction.h"
#include "Common/reduce_loud_peak/CommandLine.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/reporting/progress.h"

namespace reduce_loud_peak {

/** A bin is too loud when its peak stands too far above the mean RMS. */
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

    static void warn(const char* text);
};

class ReduceLoudOperation : public LoudReduction<PeakRule> {
  public:
    explicit ReduceLoudOperation(const ReduceLoudArgs& args);

    /**
     * Prints the text, which brings its own line end, when the verbosity is above 0. The step has
     * nothing to log of its own: this is where a message for one who works on it belongs.
     */
    void Log(const std::string& text) const;

  private:
    int verbosity_;
};

void ReduceLoud(const ReduceLoudArgs& args);

}  // namespace reduce_loud_peak
