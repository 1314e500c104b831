#pragma once

#include "cli/options/settings.h"

namespace quorvane {

/** The name of the standard streams on the command line. */
constexpr const char* kStandardStream = "-";

/** Whether the only input is the standard input, or the output the standard output. */
bool is_pipe(const Settings& settings);

/**
 * One recording from or to a pipe. What comes in is kept in a temporary file until its end, since a
 * recording is read several times; what goes out is written once it is complete and checked.
 * Returns the exit status. Throws UsageError.
 */
int run_pipe(const Settings& asked);

}  // namespace quorvane
