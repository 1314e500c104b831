#pragma once

#include <vector>

#include "leveling/conversation/track_gains.h"
#include "leveling/conversation/track_time.h"
#include "leveling/preparation/bin_levels.h"

namespace quorvane {

/** One track of a conversation, as it was measured. */
struct MeasuredTrack {
    const BinLevels* levels;
    double bin_s;  // of its bins
    TrackTime time = {};
};

/** What is to be done to it, in its own bins. */
struct TrackPlan {
    TrackSpeech speech;
    std::vector<float> curve_db;

    /** Whether its owner never speaks. */
    bool is_silent() const { return speech.phrases.phrases.empty(); }

    /** How long its owner speaks. */
    double speaks_s(double bin_s) const;
};

/** Finds who speaks, and the gains with which all voices are equally loud in the mix. */
std::vector<TrackPlan> plan_tracks(const std::vector<MeasuredTrack>& tracks);

}  // namespace quorvane
