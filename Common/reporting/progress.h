#pragma once

#include "Common/reporting/cancel.h"
#include "Common/reporting/run_state.h"

/**
 * Maps the progress of one step to its share of the whole run's 0 to 100 scale. Passes each whole
 * percent once, and only increasing ones, to the run's callback; without a callback it prints it in
 * place on the standard output.
 */
class CProgress {
  public:
    /** low, high: this step's range in percent of the whole run. */
    CProgress(double low,
              double high,
              ProgressThunk callback = gProgressThunk,
              void* context = gProcessorPtr);

    /** fraction: 0.0 to 1.0 of this step. Throws ss_cancel_exception while the run is cancelled. */
    void show(double fraction);

  private:
    double low_;
    double high_;
    int last_ = -1;
    int current_ = -1;
    ProgressThunk callback_;
    void* context_;
};

/** The share of the run, in percent, that each step's progress covers. */
namespace progress_range {
struct Range {
    double low;
    double high;
};

constexpr Range kHighpass{0, 9};
constexpr Range kGate{9, 18};
constexpr Range kLoudPeakMeasure{18, 21};
constexpr Range kLoudPeakApply{21, 26};
constexpr Range kLoudMeasure{26, 29};
constexpr Range kLoudApply{29, 34};
constexpr Range kRms{34, 35};
constexpr Range kSegment{35, 69};
constexpr Range kCalculateGains{69, 82};
constexpr Range kApplyGains{82, 91};
constexpr Range kNormalizeMeasure{91, 95};
constexpr Range kNormalizeApply{95, 100};
constexpr Range kDone{100, 100};
}  // namespace progress_range
