#pragma once

#include "Common/loud_reduction/LoudReduction.h"
#include "Common/reduce_loud/CommandLine.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reporting/progress.h"

namespace reduce_loud {

/**
 * A bin is too loud when its RMS, its louder channel's, is too far above the mean RMS. What the
 * peaks do within it does not count: they were tamed one step before.
 */
struct PassageRule {
    using Step = reduce_loud::Step;
    using RmsRule = RmsOfLouderChannel;
    static constexpr const char* kSource = "Common/reduce_loud/ReduceLoudOperation";
    static constexpr progress_range::Range kMeasure = progress_range::kLoudMeasure;
    static constexpr progress_range::Range kApply = progress_range::kLoudApply;
    static constexpr double LevelFindings::*kFoundLevel = &LevelFindings::loud_level_db;
    static constexpr double LevelFindings::*kFoundThreshold = &LevelFindings::loud_threshold_db;

    static double level(const CBin& bin) { return bin.rms; }

    /** Where a warning about the settings goes: each step has its own stream. */
    static void warn(const char* text);
};

/** The passes of loud_reduction/LoudReduction.h with this step's rule. */
class ReduceLoudOperation : public LoudReduction<PassageRule> {
  public:
    explicit ReduceLoudOperation(const ReduceLoudArgs& args) : LoudReduction<PassageRule>(args) {}
};

/** Runs the step over the files that args name. Throws the step's errors. */
void ReduceLoud(const ReduceLoudArgs& args);

}  // namespace reduce_loud
