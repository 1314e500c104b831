#pragma once

#include "Common/bins/BinGrid.h"
#include "Common/stream/parts.h"
#include "Common/stream/stream.h"

namespace level_engine {

/**
 * Applies a gain curve: each bin's gain runs in equal steps from the wall at its start to the wall
 * at its end, the same for all channels. The step is always a bin_frames-th of the way, so in a
 * short last bin the gain stops short of its wall. Frames beyond the last bin are cut off.
 */
class WallRamps : public stream::Stage {
  public:
    /** walls: grid.walls gains, linear, kept by the caller. */
    WallRamps(int channels, const BinGrid& grid, const double* walls, stream::Receiver& next);

    void process(double* samples, long long frames) override;

  private:
    int channels_;
    BinGrid grid_;
    const double* walls_;
    int bin_ = 0;
    long long frame_ = 0;  // of the bin
    double gain_ = 0.0;
};

/** The ramps as parts of a pass: each begins on a wall. */
stream::Part wall_ramps(int channels, const BinGrid& grid, const double* walls);

}  // namespace level_engine

using level_engine::wall_ramps;
using level_engine::WallRamps;
