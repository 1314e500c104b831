#pragma once

#include <vector>

#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/phrases.h"

namespace quorvane {

/** Of one track of a conversation, by bin. */
struct TrackSpeech {
    std::vector<bool> own;     // the track's owner speaks
    std::vector<bool> others;  // another voice of the conversation does
    Phrases phrases;           // the owner's
};

/**
 * The phrases of a track's owner. What is too short to be a turn, such as a cough, is not a
 * phrase of its own.
 */
Phrases find_own_phrases(const std::vector<float>& levels_db, const std::vector<bool>& own);

/**
 * How much a track is lowered while only others speak, dB, by bin: smoothly, and at full level
 * before its owner begins. Where no one speaks it stays as it was, so that the background does not
 * pump.
 */
std::vector<float> duck_curve(const std::vector<bool>& own, const std::vector<bool>& others);

/**
 * The gain of a track, dB, one value for the middle of each bin: each phrase of its owner is
 * brought to goal_db; between phrases the gain is never above those on either side, and less where
 * others speak. Where the owner has no phrases, it is silent_db less that.
 */
std::vector<float> track_curve(const TrackSpeech& speech, double goal_db, double silent_db);

}  // namespace quorvane
