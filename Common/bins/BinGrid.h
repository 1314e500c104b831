#pragma once

#include <sndfile.h>

#include <string>

#include "Common/step/step_errors.h"
#include "Common/units.h"

/** A file cut into bins of equal length (the last may be shorter), with a wall at each bin's ends.
 */
struct BinGrid {
    int bin_frames;
    long long bin_samples;  // frames times channels
    int bins;
    int walls;  // bins + 1: wall i stands at the start of bin i

    /** Progress of a pass that has done bins 0 to i: 0.0 to 1.0. */
    double fraction_done(int i) const {
        return bins == 1 ? 1.0 : static_cast<double>(i) / (bins - 1);
    }
};

/** Throws the step's ss_command_line_error, after saying why, for bins shorter than a frame. */
template <class Step>
BinGrid make_bin_grid(const SF_INFO& info, int bin_ms) {
    BinGrid grid{};
    grid.bin_frames = ms_to_frames(bin_ms, info.samplerate);
    if (bin_ms < 1 || grid.bin_frames < 1) {
        step_errors::say<Step>(__LINE__, std::string(Step::kName) + ": a bin size of " +
                                             std::to_string(bin_ms) +
                                             " ms gives bins shorter than a frame at " +
                                             std::to_string(info.samplerate) + " Hz");
        throw step_errors::command_line_error<Step>();
    }
    grid.bin_samples = static_cast<long long>(grid.bin_frames) * info.channels;
    grid.bins = static_cast<int>(ceildiv(info.frames, grid.bin_frames));
    grid.walls = grid.bins + 1;
    return grid;
}
