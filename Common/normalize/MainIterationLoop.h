#pragma once

#include "Common/bins/Bin.h"
#include "Common/normalize/dumps.h"

namespace normalize {

/**
 * Secant method: where the line through (x0, y0) and (x1, y1) meets target; x0 for a level line.
 */
double UpdateXEstimate(double x0, double x1, double y0, double y1, double target);

/**
 * The search for the one gain that brings the loudness of the bins above the noise floor to the
 * target while no such bin's peak exceeds the ceiling. It works on the bins' figures alone and
 * never touches the audio.
 *
 * Were no bin limited, target over level would be that gain at once. Each limited bin pulls the
 * gain down around it, the level falls short, and the common gain has to rise, which limits more
 * bins: the secant method finds the balance. It need not exist. If the peaks are too high, the
 * level hardly changes with the gain, the steps grow, and the gain of the last try may be
 * unreasonably large, also in quiet bins, which are never limited. last_error_db reports how far
 * off the last try was.
 */
class MainIterationLoop {
  public:
    /**
     * overallLevel, noiseFloor, peakOutput, targetLevel: linear, tolerance: dB. bins: binCount
     * records; wallGains: binCount + 1 gains, both kept by the caller and left as they were for the
     * last gain that was tried. attackBins, releaseBins: length of the ramps around a limited bin.
     */
    MainIterationLoop(double overallLevel,
                      CBin* bins,
                      int binCount,
                      double noiseFloor,
                      double peakOutput,
                      double* wallGains,
                      int attackBins,
                      int releaseBins,
                      double targetLevel,
                      double tolerance);

    /** Makes at most ten tries; if none meets the tolerance, keeps the last one. */
    void Go();

    /** Of the last try, whose result is used: level minus target in dB, and linear gain. */
    double last_error_db() const { return last_error_db_; }

    double last_gain() const { return last_gain_; }

    /** Whether the last try's level differs from the target by at most the tolerance (dB). */
    bool within_tolerance() const;

    /** Whether any bin is above the noise floor: without one no gain reaches the target. */
    bool has_level() const { return has_level_; }

    /** Each bin's gain: g, or what brings its peak to the ceiling. Quiet bins are never limited. */
    void FinalizeBinArray(double gain);

    /** The walls for the bins' gains and the common gain. */
    void AdjustGains(double gain);

    /** Sets every wall to the gain. */
    void InitializeGains(double gain);

    /** One try: the bins' gains, then the walls. */
    void FinalizeAndAdjust(double gain);

    /**
     * Level in dB of the bins above the noise floor, the last bin left out; -200 without any. The
     * gain is in the walls already and is not read.
     */
    double EstimateOutputLevel_db(double gain = 1.0) const;

    /** The secant step towards the target: gains x, their levels y in dB. */
    double UpdateGainEstimate(double x0, double x1, double y0, double y1) const;

  private:
    double overall_level_;
    CBin* bins_;
    int bin_count_;
    int wall_count_;
    double noise_floor_;
    double peak_output_;
    double* wall_gains_;
    int attack_bins_;
    int release_bins_;
    double target_level_;
    double target_level_db_;
    double tolerance_db_;
    double last_error_db_ = 0.0;
    double last_gain_ = 1.0;
    bool has_level_ = false;
};

}  // namespace normalize
