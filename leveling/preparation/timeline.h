#pragma once

#include <vector>

#include "leveling/preparation/pauses.h"

namespace quorvane {

/**
 * How a recording and its shortened copy belong together: the stretches, in frames, that the copy
 * leaves out. Both ends of each stand on walls of the bins, so that the copy's bins are the
 * recording's; only the recording's end may stand elsewhere.
 */
class Timeline {
  public:
    /** left_out: in ascending order, apart from each other. */
    Timeline(long long frames, std::vector<Stretch> left_out);

    long long frames() const { return frames_; }

    const std::vector<Stretch>& left_out() const { return left_out_; }

    /** What is between them, in the same order; none is empty. */
    const std::vector<Stretch>& kept() const { return kept_; }

    long long kept_frames() const;

    /** Where a frame of the copy stands in the recording. Its end stands at the recording's. */
    double in_recording(double copy_frame) const;

  private:
    long long frames_;
    std::vector<Stretch> left_out_;
    std::vector<Stretch> kept_;
};

/** Bins to frames; the last one may be short. */
std::vector<Stretch> in_frames(const std::vector<Stretch>& bins,
                               long long bin_frames,
                               long long frames);

}  // namespace quorvane
