#pragma once

#include <boost/scoped_array.hpp>
#include <memory>

#include "Common/bins/Bin.h"
#include "Common/bins/BinGrid.h"
#include "Common/normalize/CommandLine.h"
#include "Common/normalize/normalize.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/stream.h"

namespace normalize {

/**
 * One run of the step over one file: a pass that measures the bins, the fit on their figures, and a
 * pass that applies the gains. The audio is read twice and never held; once where the run has its
 * bins from its writing (MeasuredRecordings).
 *
 * The level that the fit starts from is taken over all samples of both channels, the level that it
 * aims at over each bin's louder channel. The two differ for a recording with one loud side, and
 * the fit absorbs the difference.
 */
class NormalizeOperation {
  public:
    /** Turns a positive noise floor or peak output negative, with a warning. */
    explicit NormalizeOperation(const NormalizeArgs& args,
                                FitFailure on_failure = FitFailure::kStand);

    /** Measures, fits and applies. Throws the step's errors and std::runtime_error. */
    void Execute();

    /** Measures every bin; returns the level of those above the noise floor, linear, or 0.0. */
    double InitializeBinArray();

    /** Writes the output whole, with the gain running from wall to wall. */
    void ApplyGains();

    /** The result of the last Execute. */
    const FitResult& result() const { return result_; }

  private:
    /** Finds the walls for a target; false when a lower target should be tried. */
    bool Fit(double target_db);

    bool surely_above_full_scale() const;

    NormalizeArgs args_;
    FitFailure on_failure_;
    double noise_floor_;  // linear
    double peak_output_;  // linear
    std::unique_ptr<SoundSource> input_;
    BinGrid grid_{};
    boost::scoped_array<CBin> pBin;
    double overall_level_ = 0.0;
    boost::scoped_array<double> pWallGains;
    FitResult result_;
    long long above_full_scale_ = 0;  // samples of the last output, held or not
};

/**
 * Counts the samples above full scale, -1.0 to 1.0, and holds them there: encodings other than
 * float wrap a larger sample to the other sign or read past the end of a table of theirs.
 */
class FullScaleHold : public stream::Stage {
  public:
    enum class Mode { kHold, kOnlyCount };

    FullScaleHold(int channels, stream::Receiver& next, Mode mode = Mode::kHold)
        : Stage(next), channels_(channels), mode_(mode) {}

    void process(double* samples, long long frames) override;

    /** Samples that were, or in the other mode would have been, held. */
    long long held() const { return held_; }

  private:
    void hold(double* samples, long long frames);

    int channels_;
    Mode mode_;
    long long held_ = 0;
};

/** Runs the step over the files that args name; throws as NormalizeOperation::Execute does. */
FitResult Normalize(const NormalizeArgs& args, FitFailure on_failure = FitFailure::kStand);

}  // namespace normalize
