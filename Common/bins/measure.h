#pragma once

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cmath>
#include <cstddef>

#include "Common/bins/bin_meter.h"
#include "Common/bins/measured_bins.h"
#include "Common/ss_util.h"
#include "Common/stream/pump.h"

namespace level_engine {

/*
 * The measuring pass: peak and RMS of every bin, and the mean level of those that are not quiet.
 */

/**
 * The RMS over all samples of the bins above the noise floor (linear); 0.0 without any. A bin's
 * level follows its rule, while the mean is taken over all samples, whatever the rule: a recording
 * with one dead channel has bins that are louder than its mean. bins and squares are as BinMeter
 * gives them. frames: of the recording, whose last bin may be short.
 */
inline double mean_rms(const CBin* bins,
                       const double* squares,
                       const BinGrid& grid,
                       long long frames,
                       int channels,
                       double noise_floor) {
    double total = 0.0;
    long long total_samples = 0;
    for (int i = 0; i < grid.bins; ++i) {
        // Squares are totalled, not levels: the mean weighs a short last bin by its length.
        if (bins[i].rms > noise_floor) {
            const long long begin = static_cast<long long>(i) * grid.bin_frames;
            total += squares[i];
            total_samples += channels * std::min<long long>(grid.bin_frames, frames - begin);
        }
    }
    return total_samples == 0 ? 0.0 : std::sqrt(total / static_cast<double>(total_samples));
}

/**
 * Measures every bin of a source from its position on, or takes what the run's driver had measured
 * when the source was written (MeasuredRecordings), and returns the mean RMS of those above the
 * noise floor. Throws the step's ss_sf_unexpected_eof when the source ends early. source_path: for
 * the message of an allocation that fails.
 */
template <class Step, class RmsRule>
double measure_bins(stream::Source& source,
                    const BinGrid& grid,
                    double noise_floor,
                    boost::scoped_array<CBin>& bins,
                    progress_range::Range range,
                    const char* source_path) {
    MeasuredRecordings& recordings = MeasuredRecordings::of_this_thread();
    const int channels = source.info().channels;
    long long frames = source.info().frames;
    boost::scoped_array<double> squares;
    MeasuredBins* const measured =
        recordings.find(source.name(), RmsRule::kKind, grid.bin_frames, source.info());
    if (measured != nullptr) {
        bins.swap(measured->bins);
        squares.swap(measured->squares);
        recordings.forget(source.name());
        stream::ProgressPacer pacer = grid.pacer(range);
        pacer.advance(frames);
        pacer.finish();
    } else {
        allocate(squares, static_cast<std::size_t>(grid.bins), "pBinData", source_path);
        BinMeter<RmsRule> meter(source.name(), channels, grid, bins.get(), squares.get());
        stream::pump(source, meter, grid.pacer(range), stream::kToTheEnd,
                     {"pBinData", source_path});
        if (!meter.complete()) {
            throw step_errors::sf_unexpected_eof<Step>(source.name());
        }
        frames = meter.frames();
    }
    return mean_rms(bins.get(), squares.get(), grid, frames, channels, noise_floor);
}

}  // namespace level_engine

using level_engine::mean_rms;
using level_engine::measure_bins;
