#pragma once

#include "Common/bins/Bin.h"

namespace normalize {

/** Secant method: where the line through (x0, y0) and (x1, y1) meets target; x0 for a level line.
 */
double UpdateXEstimate(double x0, double x1, double y0, double y1, double target);

/**
 * Searches for the one gain that brings the loudness of the bins above the noise floor to the
 * target while no such bin's peak exceeds the ceiling. Works on the bins' figures alone.
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

    /** Ten tries at most; if none meets the tolerance the last one stands. */
    void Go();

    /** Each bin's gain: g, or what brings its peak to the ceiling. Quiet bins are never limited. */
    void FinalizeBinArray(double gain);

    /** The walls for the bins' gains and the common gain. */
    void AdjustGains(double gain);

    void InitializeGains(double gain);
    void FinalizeAndAdjust(double gain);

    /** Level in dB of the bins above the noise floor, the last bin left out; -200 without any. */
    double EstimateOutputLevel_db() const;

  private:
    double UpdateGainEstimate(double x0, double x1, double y0, double y1) const;

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
};

}  // namespace normalize
