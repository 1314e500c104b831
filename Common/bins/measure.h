#pragma once

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cmath>

#include "Common/bins/bin_meter.h"
#include "Common/bins/measured_bins.h"
#include "Common/stream/pump.h"

/*
 * The measuring pass: peak and RMS of every bin, and the mean level of those that are not quiet.
 */

/**
 * The RMS over all samples of the bins above the noise floor (linear); 0.0 without any. A bin's
 * level follows its rule, while the mean is taken over all samples, whatever the rule: a recording
 * with one dead channel has bins that are louder than its mean. The bins' gains, until now the sums
 * of squares, become 1.0. frames: of the recording, whose last bin may be short.
 */
inline double take_mean_rms(
    CBin* bins, const BinGrid& grid, long long frames, int channels, double noise_floor) {
    double total = 0.0;
    long long total_samples = 0;
    for (int i = 0; i < grid.bins; ++i) {
        // Squares are totalled, not levels: the mean weighs a short last bin by its length.
        if (bins[i].rms > noise_floor) {
            const long long begin = static_cast<long long>(i) * grid.bin_frames;
            total += bins[i].gain;
            total_samples += channels * std::min<long long>(grid.bin_frames, frames - begin);
        }
        bins[i].gain = 1.0;
    }
    return total_samples == 0 ? 0.0 : std::sqrt(total / static_cast<double>(total_samples));
}

/**
 * Measures every bin of a source from its position on, or takes what was measured when the source
 * was written, and returns the mean RMS of those above the noise floor. Throws the step's
 * ss_sf_unexpected_eof when the source ends early. source_path: for the message of an allocation
 * that fails.
 */
template <class Step, class RmsRule>
double measure_bins(stream::Source& source,
                    const BinGrid& grid,
                    double noise_floor,
                    boost::scoped_array<CBin>& bins,
                    progress_range::Range range,
                    const char* source_path) {
    MeasuredRecordings& recordings = MeasuredRecordings::instance();
    long long frames = source.info().frames;
    MeasuredBins* const measured =
        recordings.find(source.name(), RmsRule::kKind, grid.bin_frames, source.info());
    if (measured != nullptr) {
        bins.swap(measured->bins);
        recordings.forget(source.name());
        stream::Pace pace = grid.pace(range);
        pace.advance(frames);
        pace.finish();
    } else {
        BinMeter<RmsRule> meter(source.name(), source.info().channels, grid, bins.get());
        stream::pump(source, meter, grid.pace(range), stream::kToTheEnd, {"pBinData", source_path});
        if (!meter.complete()) {
            throw step_errors::sf_unexpected_eof<Step>(source.name());
        }
        frames = meter.frames();
    }
    return take_mean_rms(bins.get(), grid, frames, source.info().channels, noise_floor);
}
