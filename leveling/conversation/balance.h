#pragma once

#include <vector>

#include "leveling/conversation/track_gains.h"
#include "leveling/conversation/track_time.h"

namespace quorvane {

/** A track whose voice is to be as loud in the mix as the others. */
struct BalancedTrack {
    const TrackSpeech* speech;
    const BinLevels* levels;
    double bin_s;  // of its bins
    TrackTime time;
};

/**
 * The gain curves, dB, by track and the track's bins, with which every voice is as loud in the sum
 * of all tracks as the turns of a leveled recording. Spill adds to a voice, and more to the ones
 * whose own gains are small: so the goals are moved by what the mix lacks, a few times.
 */
std::vector<std::vector<float>> balanced_curves(const std::vector<BalancedTrack>& tracks);

}  // namespace quorvane
