#pragma once

#include <sndfile.h>

#include <limits>
#include <string>

#include "Common/step/step_errors.h"
#include "Common/stream/pump.h"
#include "Common/units.h"

namespace level_engine {

/*
 * Bins and walls. Levels belong to bins: what lies between two points in time. Gains belong to
 * walls, the points themselves: inside a bin the gain runs in a straight line from the wall at its
 * start to the wall at its end, so the curve has no jumps, whatever the gains are. n bins have n +
 * 1 walls.
 *
 * A bin length in frames is truncated (50 ms at 22050 Hz are 1102 frames, not 1102.5), and every
 * step truncates in the same way, or the bins of one step would drift away from those of the next.
 */

/** A file cut into bins of equal length (the last may be shorter), with a wall at each bin's ends.
 */
struct BinGrid {
    int bin_frames;
    int bins;
    int walls;  // bins + 1: wall i stands at the start of bin i

    /** The bins from one on. */
    BinGrid from(int bin) const { return {bin_frames, bins - bin, walls - bin}; }

    /** A pass that shows its progress after each bin: i / (bins - 1), 1.0 for one bin. */
    stream::ProgressPacer pacer(progress_range::Range range) const {
        const int count = bins;
        return stream::ProgressPacer(range, bin_frames, [count](long long bin) {
            return count == 1 ? 1.0 : static_cast<double>(bin) / (count - 1);
        });
    }
};

/** Throws the step's ss_command_line_error, after saying why, for bins that cannot be had. */
template <class Step>
BinGrid make_bin_grid(const SF_INFO& info, int bin_ms) {
    const int bin_frames = ms_to_frames(bin_ms, info.samplerate);
    const bool too_short = bin_ms < 1 || bin_frames < 1;
    // One less than the largest int, since there is a wall more than there are bins.
    const long long bins = too_short ? 0 : ceildiv(info.frames, bin_frames);
    if (too_short || bins >= std::numeric_limits<int>::max()) {
        step_errors::say<Step>(
            __LINE__,
            std::string(Step::kName) + ": a bin size of " + std::to_string(bin_ms) + " ms gives " +
                (too_short ? "bins shorter than a frame" : "more bins than can be counted") +
                " at " + std::to_string(info.samplerate) + " Hz");
        throw step_errors::command_line_error<Step>();
    }
    return {bin_frames, static_cast<int>(bins), static_cast<int>(bins) + 1};
}

}  // namespace level_engine

using level_engine::BinGrid;
using level_engine::make_bin_grid;
