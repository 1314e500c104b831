#include "Common/normalize/MainIterationLoop.h"

#include <algorithm>
#include <cmath>

#include "Common/units.h"

/*
 * A try sets every bin's gain, lays the ramps over the walls and estimates the level that would
 * come of it: passes over the bins' figures only. An hour has 72000 bins, so that all ten tries
 * cost less than one pass over the audio.
 *
 * The ramps are laid as limited + k * drop / (n + 1), each wall by itself. The steps that lower
 * loud passages add a constant step instead (see bins/walls.h); the two differ in the last bits.
 */
namespace normalize {

namespace {
constexpr int kMostIterations = 10;
}  // namespace

double UpdateXEstimate(double x0, double x1, double y0, double y1, double target) {
    return y0 == y1 ? x0 : x0 + (x1 - x0) * (target - y0) / (y1 - y0);
}

MainIterationLoop::MainIterationLoop(double overallLevel,
                                     CBin* bins,
                                     int binCount,
                                     double noiseFloor,
                                     double peakOutput,
                                     double* wallGains,
                                     int attackBins,
                                     int releaseBins,
                                     double targetLevel,
                                     double tolerance)
    : overall_level_(overallLevel),
      bins_(bins),
      bin_count_(binCount),
      wall_count_(binCount + 1),
      noise_floor_(noiseFloor),
      peak_output_(peakOutput),
      wall_gains_(wallGains),
      attack_bins_(attackBins),
      release_bins_(releaseBins),
      target_level_(targetLevel),
      target_level_db_(linear_to_db(targetLevel)),
      tolerance_db_(tolerance) {}

void MainIterationLoop::Go() {
    // The secant's two first points: the recording as it is, and the gain that would be right if no
    // bin were limited.
    double x0 = 1.0;
    double x1 = target_level_ / overall_level_;
    DumpRms(bins_, bin_count_);
    FinalizeAndAdjust(x0);
    double y0 = EstimateOutputLevel_db(x0);
    for (int i = 0; i < kMostIterations; ++i) {
        FinalizeAndAdjust(x1);
        const double y1 = EstimateOutputLevel_db(x1);
        DumpLoopVars(x0, x1, y0, y1);
        last_error_db_ = y1 - target_level_db_;
        // Without a bin that counts the level stays where it is, and so does the gain.
        has_level_ = y1 != kSilence_db;
        last_gain_ = x1;
        const double x2 = UpdateGainEstimate(x0, x1, y0, y1);
        x0 = x1;
        y0 = y1;
        x1 = x2;
        if (within_tolerance()) {
            break;
        }
    }
    DumpBins(bins_, bin_count_);
    DumpWalls(wall_gains_, wall_count_);
}

bool MainIterationLoop::within_tolerance() const {
    return std::fabs(last_error_db_) <= tolerance_db_;
}

double MainIterationLoop::UpdateGainEstimate(double x0, double x1, double y0, double y1) const {
    return UpdateXEstimate(x0, x1, y0, y1, target_level_db_);
}

void MainIterationLoop::FinalizeBinArray(double gain) {
    for (int i = 0; i < bin_count_; ++i) {
        CBin& bin = bins_[i];
        bin.gain = bin.rms > noise_floor_ ? std::min(gain, peak_output_ / bin.peak) : gain;
    }
}

void MainIterationLoop::InitializeGains(double gain) {
    std::fill_n(wall_gains_, wall_count_, gain);
}

void MainIterationLoop::AdjustGains(double gain) {
    InitializeGains(gain);
    for (int i = 0; i < bin_count_; ++i) {
        const double limited = bins_[i].gain;
        if (!(limited < gain)) {
            continue;
        }
        // Behind the bin the walls rise back in release + 1 equal steps, before it they fall in
        // attack + 1; k = 0 is the bin's own wall. Where two ramps cross the lower one holds.
        const double drop = gain - limited;
        // The ramps' lengths come from settings that may be as large as a number gets.
        const int last_after = std::min(release_bins_, wall_count_ - 2 - i);
        for (int k = 0; k <= last_after; ++k) {
            double& wall = wall_gains_[i + 1 + k];
            wall = std::min(wall, limited + k * drop / static_cast<double>(release_bins_ + 1LL));
        }
        const int last_before = std::min(attack_bins_, i);
        for (int k = 0; k <= last_before; ++k) {
            double& wall = wall_gains_[i - k];
            wall = std::min(wall, limited + k * drop / static_cast<double>(attack_bins_ + 1LL));
        }
    }
}

void MainIterationLoop::FinalizeAndAdjust(double gain) {
    FinalizeBinArray(gain);
    AdjustGains(gain);
}

double MainIterationLoop::EstimateOutputLevel_db(double /*gain*/) const {
    // Across a bin the gain runs from wall to wall, so that the mean of both represents it. The
    // last bin may be short and would weigh as much as a whole one: it is left out.
    double sum = 0.0;
    int counted = 0;
    for (int i = 0; i + 1 < bin_count_; ++i) {
        if (bins_[i].rms > noise_floor_) {
            const double level = bins_[i].rms * (wall_gains_[i] + wall_gains_[i + 1]) * 0.5;
            sum += level * level;
            ++counted;
        }
    }
    return counted == 0 || sum == 0.0 ? kSilence_db : 10.0 * std::log10(sum / counted);
}

}  // namespace normalize
