#pragma once

#include <memory>
#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

struct ReferencePieces;

/**
 * How a track's clock differs from that of another one, the reference: recorders that begin at
 * other times, up to 60 s, and whose crystals differ, by up to 150 ppm. A moment t of the reference
 * is the moment offset + t * (1 + drift) of the track.
 *
 * What both recorded, spill or a shared sound, is looked for in pieces that are spread over the
 * reference. The lags that lie on one line over time give offset and drift; the share of the pieces
 * whose lags lie there is the certainty. A voice reaches the other microphone later, each voice
 * the other's, so there are two lines where both spill: their mean is the offset, and what remains
 * of the sound's way through the room is half the difference of its two directions.
 *
 * Certainty 0 where nothing shared is found. Throws std::runtime_error with the cause where a file
 * cannot be read.
 */
class ClockFinder {
  public:
    explicit ClockFinder(std::string reference);
    ~ClockFinder();
    ClockFinder(const ClockFinder&) = delete;
    ClockFinder& operator=(const ClockFinder&) = delete;

    TrackClock find(const std::string& track);

  private:
    std::string reference_;
    std::unique_ptr<ReferencePieces> pieces_;
};

/** Whether a clock differs by more than sound's way through a room, and an error of finding it. */
bool differs(const TrackClock& clock, double seconds);

}  // namespace quorvane
