#pragma once

#include "Common/outcome.h"

namespace level_engine {

/**
 * What the steps of the run on this thread have found, each number written by the step that knows
 * it. The arrays belong to the driver. Steps that run by themselves write here too, for no reader.
 */
LevelFindings& findings();

/** The state before a run: numbers are NaN, so that none looks like a result. */
LevelFindings nothing_found();

/** Forgets what an earlier run on this thread found. */
void forget_findings();

}  // namespace level_engine

using level_engine::findings;
using level_engine::forget_findings;
using level_engine::nothing_found;
