#pragma once

#include "cli/options/settings.h"

namespace quorvane {

/**
 * quorvane --watch DIR: levels the recordings of a folder as they arrive, until a signal ends it.
 * Returns the exit status: 0 after a signal, whatever became of single files, which is reported
 * when it happens.
 */
int run_watch(const Settings& asked);

}  // namespace quorvane
