#pragma once

namespace quorvane {

/** Where a track lies on the conversation's common clock, which is that of its first track. */
struct TrackTime {
    double begin_s = 0;  // common time at which the track begins; 0 or more
    double speed = 1;    // of the track's own clock: seconds of it in one of the common clock

    double own_s(double common_s) const { return (common_s - begin_s) * speed; }

    double common_s(double own_s) const { return own_s / speed + begin_s; }

    /** Whether the track's frames are those of the common clock. */
    bool is_common() const { return begin_s == 0 && speed == 1; }
};

}  // namespace quorvane
