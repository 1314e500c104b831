#pragma once

#include "Common/outcome.h"

/**
 * What the steps of the run under way have found, each number written by the step that knows it.
 * The arrays belong to the driver. Steps that run by themselves write here too; nobody reads it.
 */
LevelFindings& findings();

/** Forgets what an earlier run found. */
void forget_findings();
