#pragma once

#include <vector>

#include "leveling/preparation/pauses.h"
#include "leveling/preparation/phrases.h"

/* What gain curves are made of: those of a recording and those of a conversation's tracks. */

namespace quorvane {

/**
 * The gain of each phrase, dB, that brings its level to goal_db; none is further than most_db from
 * the middle one, so that a single odd phrase is not raised or lowered out of proportion. There is
 * at least one phrase.
 */
std::vector<double> phrase_gains(const Phrases& phrases, double goal_db, double most_db);

/** Sets the curve to one gain, dB, in a range of bins. */
void fill(std::vector<float>& curve, Stretch range, double gain);

/** A straight line, in dB, between the gain before a range of bins and that behind it. */
void ramp(std::vector<float>& curve, Stretch range, double from, double to);

}  // namespace quorvane
