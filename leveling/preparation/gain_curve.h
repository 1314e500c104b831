#pragma once

#include <vector>

#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/phrases.h"

namespace quorvane {

/** What a gain curve is made for. */
struct CurveGoal {
    double speech_db = 0;   // the level of every phrase
    double ceiling_db = 0;  // of the limiter
};

/**
 * One gain per phrase, in dB, one value for the middle of each bin: constant in a phrase, moved in
 * the quarter second before the next one begins. In long pauses it is at most the gain on either
 * side, and at most the average; there and in long gaps it sinks by up to 6 dB where the background
 * is far under the speech, as a gate does. Peaks may pass the ceiling: a limiter holds them, and a
 * phrase gets up to 2 dB more for what that takes from its level.
 */
std::vector<float> gain_curve(const BinLevels& levels,
                              const Phrases& phrases,
                              const std::vector<Stretch>& pauses,
                              const CurveGoal& goal);

/**
 * A gain curve less what a limiter takes from each bin on average. peaks: the largest absolute
 * sample of each bin.
 */
std::vector<float> limited_curve(const std::vector<float>& peaks,
                                 double ceiling_db,
                                 std::vector<float> curve_db);

/**
 * The bins that a limiter has to look at: the wave behind the gain may pass the ceiling, as it
 * rises up to 3 dB over the samples.
 */
std::vector<bool> bins_to_limit(const std::vector<float>& peaks,
                                double ceiling_db,
                                const std::vector<float>& curve_db);

/**
 * What takes peaks of a leveled recording down to the ceiling, dB, for the middle of each bin;
 * empty where none is above it. peaks: linear, as BinLevels has them.
 */
std::vector<float> trim_curve(const std::vector<float>& peaks, double ceiling_db);

/**
 * Lowers a gain curve where a peak would pass the ceiling, for as long as that takes and a fifth of
 * a second behind. peaks: the largest absolute sample of each bin.
 */
void lower_for_peaks(const std::vector<float>& peaks,
                     double ceiling_db,
                     std::vector<float>& curve_db);

}  // namespace quorvane
