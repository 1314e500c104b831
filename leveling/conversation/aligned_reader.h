#pragma once

#include <cstddef>
#include <vector>

#include "leveling/conversation/track_time.h"
#include "leveling/preparation/rendering.h"

namespace quorvane {

/**
 * A track's leveled frames on the common clock: silence before it begins, then its frames, where
 * its clock runs at another speed as band-limited values between them. Where neither is so, the
 * frames as they are.
 */
class AlignedReader {
  public:
    /** time: with the frames of the common clock and the track's at one nominal rate. */
    AlignedReader(const std::string& recording,
                  const std::vector<Section>& high_pass,
                  std::vector<float> curve_db,
                  long long bin_frames,
                  const TrackTime& time);

    int channels() const { return channels_; }

    /** So many frames, fewer at the end; returns how many. */
    long long read(double* samples, long long frames);

  private:
    bool fill(long long until);
    void drop(long long before);
    void interpolate(double own_frame, double* to) const;

    CurveReader reader_;
    int channels_;
    TrackTime time_;
    double begin_frame_;          // common, at which the track begins
    std::vector<double> buffer_;  // from first_ on
    long long first_ = 0;         // frame of the track
    long long end_ = 0;           // behind the buffer's last
    bool ended_ = false;
    long long at_ = 0;                          // the next common frame
    std::vector<std::vector<double>> weights_;  // by fraction of a frame
};

}  // namespace quorvane
