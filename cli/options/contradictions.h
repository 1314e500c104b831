#pragma once

#include "cli/options/settings.h"

/*
 * Options that cannot both be meant. They are refused and never resolved by a silent rule: a typing
 * error must not cost a file.
 */

namespace quorvane {

/** Throws UsageError, which names the options, for the first contradiction. */
void refuse_contradictions(const Settings& settings);

/** The same for what a watch cannot do, and for what only a watch can. */
void refuse_beside_watch(const Settings& settings);

}  // namespace quorvane
