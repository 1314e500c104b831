#pragma once

#include "Common/units.h"

namespace quorvane {

/*
 * Levels that decisions are taken on. They come from additions, multiplications and divisions
 * alone, so that every build takes the same decisions, and are rounded to 1e-4 dB.
 */

/** 10 log10 of a power, rounded; kSilence_db at least. */
double level_of_power(double power);

/** 20 log10 of an amplitude, rounded; kSilence_db at least. */
double level_of_amplitude(double amplitude);

/** The power of a level: 10^(db/10). */
double power_of_level(double db);

}  // namespace quorvane
