#pragma once

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "Common/audio/finite.h"
#include "Common/audio/sound_handle.h"
#include "Common/bins/Bin.h"
#include "Common/bins/BinGrid.h"
#include "Common/reporting/progress.h"

/** Sum of squares and peak of one bin, and the RMS that a rule gives it. */
struct BinMeasure {
    double sum;  // of the squares of all samples
    double peak;
    double rms;
};

/** A bin's RMS over all its samples, channels together. */
struct RmsOfAllSamples {
    static BinMeasure measure(const double* samples, long long count, int /*channels*/) {
        BinMeasure bin{0.0, 0.0, 0.0};
        for (long long i = 0; i < count; ++i) {
            bin.sum += samples[i] * samples[i];
            bin.peak = std::max(bin.peak, std::fabs(samples[i]));
        }
        bin.rms = std::sqrt(bin.sum / static_cast<double>(count));
        return bin;
    }
};

/** The RMS of a bin's louder channel: a loud voice on one side is as loud as one on both. */
struct RmsOfLouderChannel {
    static BinMeasure measure(const double* samples, long long count, int channels) {
        if (channels == 1) {
            return RmsOfAllSamples::measure(samples, count, channels);
        }
        double left = 0.0;
        double right = 0.0;
        double peak = 0.0;
        for (long long i = 0; i + 1 < count; i += 2) {
            left += samples[i] * samples[i];
            right += samples[i + 1] * samples[i + 1];
            peak = std::max({peak, std::fabs(samples[i]), std::fabs(samples[i + 1])});
        }
        const long long frame_count = count / 2;
        const double frames = static_cast<double>(frame_count);
        return {left + right, peak, std::max(std::sqrt(left / frames), std::sqrt(right / frames))};
    }
};

/**
 * Measures every bin of a file from the handle's position on. bins receives grid.bins records with
 * a gain of 1.0; scratch holds grid.bin_samples. Returns the RMS over all samples of the bins whose
 * RMS is above noise_floor (linear), or 0.0 when there are none. Throws the step's
 * ss_sf_unexpected_eof when the file ends early, std::runtime_error for samples that are not
 * finite.
 */
template <class Step, class RmsRule>
double measure_bins(const SoundHandle& handle,
                    const std::string& file,
                    const SF_INFO& info,
                    const BinGrid& grid,
                    double noise_floor,
                    CBin* bins,
                    double* scratch,
                    CProgress progress) {
    FiniteGuard guard(file, info);
    double total = 0.0;
    long long total_samples = 0;
    for (int i = 0; i < grid.bins; ++i) {
        const long long count = sf_read_double(handle.get(), scratch, grid.bin_samples);
        if (count <= 0) {
            throw step_errors::sf_unexpected_eof<Step>(file);
        }
        guard.check(scratch, count);
        const BinMeasure bin = RmsRule::measure(scratch, count, info.channels);
        if (!std::isfinite(bin.sum)) {
            throw std::runtime_error(file + ": the samples around frame " +
                                     std::to_string(static_cast<long long>(i) * grid.bin_frames) +
                                     " are too large");
        }
        bins[i] = {1.0, bin.peak, bin.rms};
        if (bin.rms > noise_floor) {
            total += bin.sum;
            total_samples += count;
        }
        progress.show(grid.fraction_done(i));
    }
    return total_samples == 0 ? 0.0 : std::sqrt(total / static_cast<double>(total_samples));
}
