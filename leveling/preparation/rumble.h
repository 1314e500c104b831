#pragma once

#include <vector>

#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/sections.h"

namespace quorvane {

/** The engine's own high-pass, which every recording goes through. */
Section gentle_high_pass(int sample_rate_hz);

/**
 * What has to go before it where there is rumble that is about as loud as the speech: the engine's
 * 12 dB an octave would leave it. Empty where there is none.
 */
std::vector<Section> rumble_filter(const BinLevels& levels,
                                   const std::vector<bool>& speech,
                                   int sample_rate_hz);

/** Takes over the levels that the rumble is in, as they are without it. */
void replace_rumbling_levels(BinLevels& levels, BinLevels&& without_rumble);

}  // namespace quorvane
