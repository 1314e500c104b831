#pragma once

#include "Common/audio/sound_handle.h"
#include "Common/bins/BinGrid.h"
#include "Common/reporting/progress.h"

/**
 * Applies a gain curve: each bin's gain runs in equal steps from the wall at its start to the wall
 * at its end. Reads the input from its position on, a bin at a time, and writes frames of the same
 * channel count. scratch holds grid.bin_samples.
 *
 * The step is always a bin_frames-th of the way, so in a short last bin the gain stops short of its
 * wall. Returns false, with the cause on the standard error stream, when a write came up short.
 */
bool apply_walls(const SoundHandle& input,
                 const SoundHandle& output,
                 const std::string& output_path,
                 int channels,
                 const BinGrid& grid,
                 const double* walls,
                 double* scratch,
                 CProgress progress);

/**
 * Multiplies frames of interleaved samples by a gain that grows by step after each frame. Returns
 * the gain after the last.
 */
double apply_ramp(double* samples, long long frames, int channels, double gain, double step);
